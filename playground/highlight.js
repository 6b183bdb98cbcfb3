// The colours of a script's words: a view for reading, which decides nothing.

const kWords = new Set(
    ("if elseif else end while repeat until for in function return break native local decay " +
        "not and or true false ture tre tue flase fasle flse").split(" "),
);
// Comment, string (which may go over lines), number, word.
const kToken = /(@@[^\n]*)|("(?:\\[^]|[^"\\])*"?|'(?:\\[^]|[^'\\])*'?)|(\b\d+\.?\d*|\.\d+)|([A-Za-z_$][\w$]*)/g;

/** The coloured pieces of `text` as [first, last, class], in order; offsets of UTF-16 units. */
export function colouredPieces(text) {
    const pieces = [];
    for (const match of text.matchAll(kToken)) {
        const [whole, comment, literal, number, word] = match;
        const last = match.index + whole.length;
        let kind = null;
        if (comment) kind = "comment";
        else if (literal) kind = "literal";
        else if (number) kind = "number";
        else if (word && kWords.has(word)) kind = "keyword";
        else if (word && /^\s*\(/.test(text.slice(last, last + 4))) kind = "function";
        if (kind) pieces.push([match.index, last, kind]);
    }
    return pieces;
}

/**
 * Nodes for `text` with the classes of `pieces` and, across these, of `marks` of the same form.
 */
export function paint(text, pieces, marks = []) {
    const edges = new Set([0, text.length]);
    for (const [first, last] of [...pieces, ...marks]) edges.add(first).add(last);
    const sorted = [...edges].sort((a, b) => a - b);
    const fragment = document.createDocumentFragment();
    const marksByStart = [...marks].sort((a, b) => a[0] - b[0]);
    let piece = 0;
    for (let i = 0; i + 1 < sorted.length; ++i) {
        const [first, last] = [sorted[i], sorted[i + 1]];
        while (piece < pieces.length && pieces[piece][1] <= first) ++piece;
        const classes = [];
        if (piece < pieces.length && pieces[piece][0] <= first) classes.push(pieces[piece][2]);
        for (const [from, to, name] of marksByStart) {
            if (from > first) break;
            if (to > first) classes.push(name);
        }
        const part = text.slice(first, last);
        if (classes.length === 0) {
            fragment.append(part);
            continue;
        }
        const span = document.createElement("span");
        span.className = classes.join(" ");
        span.textContent = part;
        fragment.append(span);
    }
    return fragment;
}
