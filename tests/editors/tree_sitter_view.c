/* What the tree-sitter grammar makes of scripts, by the library; it is linked with the generated parser.
 *   tree_sitter_view tree < script            its tree, in one line
 *   tree_sitter_view mistakes FILE...         "FILE:LINE: KIND" for each node that is a mistake
 *   tree_sitter_view captures QUERY FILE...   "FILE<tab>PATTERN<tab>NAME<tab>LINE<tab>COLUMN<tab>TEXT" for
 *                                             each capture, lines and columns in bytes from 1
 */
#include <regex.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <tree_sitter/api.h>

extern const TSLanguage *tree_sitter_dovrelscript(void);

static char *read_all(FILE *file, uint32_t *length)
{
    size_t size = 0, room = 1 << 16;
    char *text = malloc(room);
    for (size_t got; (got = fread(text + size, 1, room - size, file)) > 0;) {
        size += got;
        if (size == room) text = realloc(text, room *= 2);
    }
    *length = (uint32_t)size;
    return text;
}

static char *read_file(const char *path, uint32_t *length)
{
    FILE *file = fopen(path, "rb");
    if (file == NULL) {
        perror(path);
        exit(2);
    }
    char *text = read_all(file, length);
    fclose(file);
    return text;
}

static void print_mistakes(const char *path, TSNode node)
{
    if (!ts_node_has_error(node)) return;
    if (ts_node_is_missing(node) || strcmp(ts_node_type(node), "ERROR") == 0) {
        printf("%s:%u: %s%s\n", path, ts_node_start_point(node).row + 1,
               ts_node_is_missing(node) ? "MISSING " : "", ts_node_type(node));
        return;
    }
    for (uint32_t i = 0; i < ts_node_child_count(node); i++) {
        print_mistakes(path, ts_node_child(node, i));
    }
}

static const char *string_of(const TSQuery *query, const TSQueryPredicateStep *step)
{
    uint32_t length;
    return ts_query_string_value_for_id(query, step->value_id, &length);
}

/* The library leaves the predicates to its callers. Of these there is one, (#match? @CAPTURE REGEX). */
static bool holds(const TSQuery *query, const TSQueryMatch *match, const char *text)
{
    uint32_t count;
    const TSQueryPredicateStep *steps =
        ts_query_predicates_for_pattern(query, match->pattern_index, &count);
    if (count == 0) return true;
    if (count != 4 || strcmp(string_of(query, &steps[0]), "match?") != 0) {
        fprintf(stderr, "pattern %u has another predicate\n", match->pattern_index);
        exit(2);
    }
    for (uint16_t i = 0; i < match->capture_count; i++) {
        if (match->captures[i].index != steps[1].value_id) continue;
        uint32_t start = ts_node_start_byte(match->captures[i].node);
        uint32_t length = ts_node_end_byte(match->captures[i].node) - start;
        char word[4096];
        regex_t expression;
        if (length >= sizeof word) return false;
        memcpy(word, text + start, length);
        word[length] = '\0';
        if (regcomp(&expression, string_of(query, &steps[2]), REG_EXTENDED | REG_NOSUB) != 0) exit(2);
        bool found = regexec(&expression, word, 0, NULL, 0) == 0;
        regfree(&expression);
        return found;
    }
    return false;
}

static void print_captures(const char *path, const char *text, TSNode root, const TSQuery *query)
{
    TSQueryCursor *cursor = ts_query_cursor_new();
    TSQueryMatch match;
    uint32_t index;
    ts_query_cursor_exec(cursor, query, root);
    while (ts_query_cursor_next_capture(cursor, &match, &index)) {
        if (!holds(query, &match, text)) continue;
        TSQueryCapture capture = match.captures[index];
        uint32_t length;
        const char *name = ts_query_capture_name_for_id(query, capture.index, &length);
        TSPoint place = ts_node_start_point(capture.node);
        uint32_t start = ts_node_start_byte(capture.node), end = ts_node_end_byte(capture.node);
        printf("%s\t%u\t%.*s\t%u\t%u\t", path, match.pattern_index, (int)length, name,
               place.row + 1, place.column + 1);
        for (uint32_t i = start; i < end; i++) putchar(text[i] == '\n' ? ' ' : text[i]);
        putchar('\n');
    }
    ts_query_cursor_delete(cursor);
}

static TSQuery *read_query(const char *path)
{
    uint32_t length, place;
    TSQueryError error;
    char *text = read_file(path, &length);
    TSQuery *query = ts_query_new(tree_sitter_dovrelscript(), text, length, &place, &error);
    if (query == NULL) {
        fprintf(stderr, "%s: mistake %d at byte %u\n", path, error, place);
        exit(2);
    }
    free(text);
    return query;
}

int main(int count, char **arguments)
{
    const char *mode = count > 1 ? arguments[1] : "";
    TSParser *parser = ts_parser_new();
    uint32_t length;
    if (!ts_parser_set_language(parser, tree_sitter_dovrelscript())) return 2;
    if (strcmp(mode, "tree") == 0) {
        char *text = read_all(stdin, &length);
        TSTree *tree = ts_parser_parse_string(parser, NULL, text, length);
        char *shown = ts_node_string(ts_tree_root_node(tree));
        puts(shown);
        free(shown);
        return 0;
    }
    TSQuery *query = strcmp(mode, "captures") == 0 ? read_query(arguments[2]) : NULL;
    for (int i = query == NULL ? 2 : 3; i < count; i++) {
        char *text = read_file(arguments[i], &length);
        TSTree *tree = ts_parser_parse_string(parser, NULL, text, length);
        TSNode root = ts_tree_root_node(tree);
        if (query == NULL) {
            print_mistakes(arguments[i], root);
        } else {
            print_captures(arguments[i], text, root, query);
        }
        ts_tree_delete(tree);
        free(text);
    }
    return 0;
}
