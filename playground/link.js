// A script in the fragment of the page's address, which no server gets to see.

const kPrefix = "#script=";

async function through(bytes, stream) {
    const piped = new Blob([bytes]).stream().pipeThrough(stream);
    return new Uint8Array(await new Response(piped).arrayBuffer());
}

function toText(bytes) {
    let binary = "";
    for (const byte of bytes) binary += String.fromCharCode(byte);
    return btoa(binary).replaceAll("+", "-").replaceAll("/", "_").replace(/=+$/, "");
}

function fromText(text) {
    const binary = atob(text.replaceAll("-", "+").replaceAll("_", "/"));
    return Uint8Array.from(binary, (character) => character.charCodeAt(0));
}

/** The fragment that holds `script`. */
export async function fragmentOf(script) {
    const bytes = new TextEncoder().encode(script);
    return kPrefix + toText(await through(bytes, new CompressionStream("deflate-raw")));
}

/** The script in a fragment, or null if there is none that can be read. */
export async function scriptIn(fragment) {
    if (!fragment.startsWith(kPrefix)) return null;
    try {
        const bytes = fromText(fragment.slice(kPrefix.length));
        const script = await through(bytes, new DecompressionStream("deflate-raw"));
        return new TextDecoder("utf-8", { fatal: true }).decode(script);
    } catch {
        return null;
    }
}
