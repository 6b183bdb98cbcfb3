// What playground.cpp calls of the program around.
mergeInto(LibraryManager.library, {
    playground_ask_line__deps: ["malloc"],
    playground_ask_line: function (size) {
        const line = Module["askLine"]();
        if (line === null) return 0;
        const place = _malloc(line.length + 1);
        HEAPU8.set(line, place);
        HEAPU32[size >> 2] = line.length;
        return place;
    },
});
