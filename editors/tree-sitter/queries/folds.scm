[
  (if_statement)
  (while_statement)
  (repeat_statement)
  (for_statement)
  (function_declaration)
  (array)
  (table)
  (arguments)
] @fold
