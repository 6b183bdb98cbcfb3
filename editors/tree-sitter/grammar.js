// The grammar of DovrelScript for tree-sitter.
//
// A line feed ends a statement where one may end. Inside of brackets none may, and there it is white
// space like any other: that is all that line orientation takes.

const LEVEL = { or: 1, and: 2, equality: 3, order: 4, sum: 5, product: 6, unary: 7, power: 8, postfix: 9 };

const BINARY = [
  [prec.left, LEVEL.or, ['or', '||']],
  [prec.left, LEVEL.and, ['and', '&&']],
  [prec.left, LEVEL.equality, ['==', '!=', '~=']],
  [prec.left, LEVEL.order, ['<', '>', '<=', '>=']],
  [prec.left, LEVEL.sum, ['+', '-']],
  [prec.left, LEVEL.product, ['*', '/', '\\', '%']],
  [prec.right, LEVEL.power, ['^']],
];

const list = (rule) => seq(rule, repeat(seq(',', rule)));
// A comma may stand behind the last one.
const literalList = (rule) => optional(seq(list(rule), optional(',')));

module.exports = grammar({
  name: 'dovrelscript',
  word: ($) => $.identifier,
  extras: ($) => [/[\s\x0b\x0c]/, $.comment],
  inline: ($) => [$._end_of_line],

  rules: {
    script: ($) => seq(repeat($._line), optional($._statement)),

    _line: ($) => choice(seq($._statement, $._end_of_line), ';'),
    _end_of_line: () => choice('\n', ';'),
    block: ($) => repeat1($._line),

    _statement: ($) =>
      choice(
        $.if_statement,
        $.while_statement,
        $.repeat_statement,
        $.for_statement,
        $.function_declaration,
        $.return_statement,
        $.break_statement,
        $.assignment,
        $.declaration,
        $.expression_statement,
      ),

    // ---------------------------------------------------------------- blocks

    if_statement: ($) =>
      seq(
        'if',
        field('condition', $._expression),
        $._end_of_line,
        field('consequence', optional($.block)),
        // In any order: what stands behind an `else` never runs.
        repeat(choice($.elseif_clause, $.else_clause)),
        $._end,
      ),
    elseif_clause: ($) =>
      seq(
        'elseif',
        field('condition', $._expression),
        $._end_of_line,
        field('consequence', optional($.block)),
      ),
    else_clause: ($) => seq('else', $._rest_of_line, field('body', optional($.block))),
    while_statement: ($) =>
      seq(
        'while',
        field('condition', $._expression),
        $._end_of_line,
        field('body', optional($.block)),
        $._end,
      ),
    repeat_statement: ($) =>
      seq(
        'repeat',
        $._rest_of_line,
        field('body', optional($.block)),
        'until',
        field('condition', $._expression),
      ),
    for_statement: ($) =>
      seq(
        'for',
        choice($.counting, $.walking),
        $._end_of_line,
        field('body', optional($.block)),
        $._end,
      ),
    counting: ($) =>
      seq(
        field('variable', $.identifier),
        '=',
        field('start', $._expression),
        ',',
        field('limit', $._expression),
        optional(seq(',', field('step', $._expression))),
      ),
    walking: ($) => seq(list(field('variable', $.identifier)), 'in', field('over', $._expression)),
    function_declaration: ($) =>
      seq(
        optional(choice('decay', 'native', 'local')),
        'function',
        field('name', choice($.identifier, alias($._stored_name, $.index_expression))),
        field('parameters', $.parameters),
        $._end_of_line,
        field('body', optional($.block)),
        $._end,
      ),
    _stored_name: ($) =>
      seq(
        field('container', choice($.identifier, alias($._stored_name, $.index_expression))),
        '[',
        field('index', $._expression),
        ']',
      ),
    parameters: ($) =>
      seq(
        '(',
        optional(choice($.variadic, seq(list($.identifier), optional(seq(',', $.variadic))))),
        ')',
      ),

    // These words stand alone in their line: what follows is not read, and no mistake.
    _end: ($) => seq('end', optional($.ignored)),
    _rest_of_line: ($) => seq(optional($.ignored), $._end_of_line),
    ignored: () => token(prec(-1, /[^\s;@]([^\n;@]|@[^\n;@])*/)),

    // ---------------------------------------------------------------- lines

    return_statement: ($) => seq('return', optional(seq(list($._expression), optional(',')))),
    break_statement: ($) => seq('break', optional($.ignored)),
    assignment: ($) =>
      seq(
        optional(choice('native', 'local')),
        list(field('target', $._target)),
        field('operator', choice('=', '+=', '-=', '*=', '/=', '\\=', '%=', '^=')),
        list(field('value', $._expression)),
      ),
    declaration: ($) => seq('local', list(field('target', $._target))),
    // With nothing behind them, two of the words are names.
    expression_statement: ($) =>
      choice($._expression, alias(choice('native', 'local'), $.identifier)),
    // An assignment to a word that is a truth value makes a variable that nobody can read.
    _target: ($) => choice($._name, $.index_expression, $.boolean),

    // ---------------------------------------------------------------- expressions

    _expression: ($) =>
      choice(
        $._postfixed,
        $.unary_expression,
        $.binary_expression,
        $.absent,
        $.boolean,
        $.number,
        $.variadic,
      ),
    // What an index or arguments may stand behind.
    _postfixed: ($) =>
      choice(
        $._name,
        $.string,
        $.array,
        $.table,
        $.parenthesised,
        $.call_expression,
        $.index_expression,
      ),
    // A word that begins a statement and is a name there too, unless `function` follows.
    _name: ($) => choice($.identifier, alias('decay', $.identifier)),

    parenthesised: ($) => seq('(', $._expression, ')'),
    call_expression: ($) =>
      prec(LEVEL.postfix, seq(field('function', $._postfixed), field('arguments', $.arguments))),
    arguments: ($) => seq('(', optional(list($._expression)), ')'),
    index_expression: ($) =>
      prec(
        LEVEL.postfix,
        seq(field('container', $._postfixed), '[', field('index', $._expression), ']'),
      ),
    unary_expression: ($) =>
      prec(LEVEL.unary, seq(field('operator', choice('not', '!', '-', '+', '#')), $._expression)),
    // Where no operand follows; and a sign behind it is no operand but goes on with it.
    absent: () => prec(LEVEL.unary + 1, 'not'),
    binary_expression: ($) =>
      choice(
        ...BINARY.map(([associativity, level, operators]) =>
          associativity(
            level,
            seq(
              field('left', $._expression),
              field('operator', choice(...operators)),
              field('right', $._expression),
            ),
          ),
        ),
      ),

    array: ($) => seq('[', literalList($._expression), ']'),
    table: ($) => seq('{', literalList(choice($.entry, $._expression)), '}'),
    entry: ($) =>
      seq(
        field('key', choice($._key, $.number, $.string, seq('[', $._expression, ']'))),
        choice(':', '='),
        field('value', $._expression),
      ),

    // In front of a colon every word is a name.
    _key: ($) =>
      choice($.identifier, alias($.boolean, $.identifier), alias($.absent, $.identifier)),

    // ---------------------------------------------------------------- words

    identifier: () => /[A-Za-z_$][A-Za-z0-9_$]*/,
    number: () => /\d+(\.\d*)?|\.\d+/,
    boolean: () => choice('true', 'ture', 'tre', 'tue', 'false', 'flase', 'fasle', 'flse'),
    variadic: () => '...',
    string: ($) =>
      choice(
        seq('"', repeat(choice(token.immediate(prec(1, /[^"\\]+/)), $.escape)), '"'),
        seq("'", repeat(choice(token.immediate(prec(1, /[^'\\]+/)), $.escape)), "'"),
      ),
    escape: () => token.immediate(/\\(.|\n)/),
    comment: () => /@@[^\n]*/,
  },
});
