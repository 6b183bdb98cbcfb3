; Of several patterns that fit, the last one counts.

(identifier) @variable

(comment) @comment
(string) @string
(escape) @string.escape
(number) @number
(boolean) @boolean
(absent) @constant.builtin
(variadic) @variable.builtin
(ignored) @comment

; The library.
((identifier) @variable.builtin
  (#match? @variable.builtin "^(string|table|math|utf8|io|os|package)$"))
((identifier) @constant.builtin
  (#match? @constant.builtin "^DOVREL_(VERSION|RELEASE|NAME|AUTHOR)$"))
(call_expression function: (identifier) @function.call)
(call_expression function: (index_expression index: (string) @function.call))
(call_expression function: (identifier) @function.builtin
  (#match? @function.builtin "^(array|assert|clear|collectGarbage|collectgarbage|contains|dofile|erase|error|get|getTimeMs|gsub|ipairs|keys|kill|len|load|loadFile|loadfile|loadstring|next|pairs|pcall|pop|print|push|random|reserve|runFile|select|set|toNumber|toString|tonumber|tostring|type|typeOf|values)$"))
(call_expression
  function: (index_expression container: (identifier) @variable.builtin index: (string) @function.builtin)
  (#match? @variable.builtin "^(string|table|math|utf8|io|os)$"))

(function_declaration name: (identifier) @function)
(function_declaration name: (index_expression index: (string) @function))
(parameters (identifier) @variable.parameter)

["if" "elseif" "else" "end"] @keyword.conditional
["while" "repeat" "until" "for" "in" "break"] @keyword.repeat
(while_statement "end" @keyword.repeat)
(for_statement "end" @keyword.repeat)
["function" "decay"] @keyword.function
(function_declaration "end" @keyword.function)
"return" @keyword.return
["native" "local"] @keyword
["and" "or" "not"] @keyword.operator
(absent) @constant.builtin

["+" "-" "*" "/" "\\" "%" "^" "#" "!" "==" "!=" "~=" "<" ">" "<=" ">=" "&&" "||"
 "=" "+=" "-=" "*=" "/=" "\\=" "%=" "^="] @operator
["(" ")" "[" "]" "{" "}"] @punctuation.bracket
["," ":" ";"] @punctuation.delimiter
(entry "=" @punctuation.delimiter)

(entry key: (identifier) @property)
(entry key: (string) @property)
