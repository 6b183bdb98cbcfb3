" Vim syntax file
" Language: DovrelScript (*.dv)

if exists('b:current_syntax')
  finish
endif
let s:cpo_save = &cpo
set cpo&vim

syn case match
" Strings, brackets and blocks have no limit, so nothing short of the whole file will do.
syn sync fromstart

" What a word consists of. Every word is matched whole, so that no item starts inside one.
let s:char = '\%([0-9A-Za-z_$.?`]\|[^\x01-\x7f]\|@@\@!\|&&\@!\|||\@!\|\~=\@!\)'
let s:end = '\%(' . s:char . '\)\@!'
let s:name = '[A-Za-z_$][A-Za-z0-9_$]*'
" Where a statement begins. Only there the statement words are keywords.
let s:start = '\%(\%(^\|;\)\s*\)\@<='

" Defines a match, with the pattern written as a Vim expression. At one place the last match wins.
function! s:match(group, pattern, ...) abort
  execute 'syn match' a:group '"' . escape(a:pattern, '"') . '"' join(a:000)
endfunction

function! s:words(words) abort
  return '\%(' . join(split(a:words), '\|') . '\)' . s:end
endfunction

" Neither a name nor a number, such as a.b or 1e5: it fails when it is evaluated.
call s:match('dovrelUnknown', s:char . '\+')
call s:match('dovrelVariable', s:name . s:end)
call s:match('dovrelCall', s:name . s:end . '\%(\s*(\)\@=')
call s:match('dovrelNumber', '\d\+' . s:end)
call s:match('dovrelFloat', '\%(\d\+\.\d*\|\.\d\+\)' . s:end)
call s:match('dovrelVarargs', '\.\.\.' . s:end)
call s:match('dovrelBoolean', s:words('true ture tre tue false flase fasle flse'))

call s:match('dovrelBuiltin', s:words('array assert clear collectGarbage collectgarbage contains '
      \ . 'dofile erase error get getTimeMs gsub ipairs keys kill len load loadFile loadfile '
      \ . 'loadstring next pairs pcall pop print push random reserve runFile select set toNumber '
      \ . 'toString tonumber tostring type typeOf values'))
call s:match('dovrelLibrary', s:words('string table math utf8 io os package'))
call s:match('dovrelLibraryConstant', s:words('DOVREL_VERSION DOVREL_RELEASE DOVREL_NAME DOVREL_AUTHOR'))

" A member of a library, string["sub"]: the quoted name behind its table.
function! s:member(group, library, members) abort
  let quoted = '\(["'']\)' . s:words_of(a:members) . '\1'
  call s:match('dovrelLibraryIndex', a:library . '\s*\[\s*' . quoted . '\s*\]',
        \ 'contains=dovrelLibraryName,dovrelLibraryBracket,dovrelQuoted' . a:group)
endfunction
function! s:words_of(words) abort
  return '\%(' . join(split(a:words), '\|') . '\)'
endfunction
call s:member('Function', 'string', 'gsub len upper lower sub find match gmatch byte char format rep')
call s:member('Function', 'table', 'insert remove concat sort')
call s:member('Function', 'math',
      \ 'floor ceil abs min max sin cos rad log sqrt random randomSeed randomseed')
call s:member('Constant', 'math', 'pi')
call s:member('Function', 'utf8', 'len offset')
call s:member('Function', 'io', 'open popen')
call s:member('Function', 'os', 'clock time')
call s:member('Constant', 'package', 'path cpath')
syn match dovrelLibraryName "\a\w*" contained
syn match dovrelLibraryBracket "[][]" contained
syn region dovrelQuotedFunction matchgroup=dovrelString start=+\z(["']\)+ end=+\z1+ contained oneline
syn region dovrelQuotedConstant matchgroup=dovrelString start=+\z(["']\)+ end=+\z1+ contained oneline

syn match dovrelOperator "[-+*/\\%^#!<>=]"
syn match dovrelOperator "[=!<>]=\|\~=\|&&\|||"
syn match dovrelAssignment "==\@!"
syn match dovrelAssignment "[-+*/\\%^]="
call s:match('dovrelLogical', s:words('and or not'))
" A "not" with no operand behind it is the absent value.
call s:match('dovrelNot', 'not' . s:end . '\%(\s*\%($\|@@\|[;)\]},%*+/\\^<>-]\|[=!~]=\|&&\|||\|'
      \ . s:words('and or else elseif end until') . '\)\)\@=')
syn match dovrelSeparator ","
syn match dovrelTerminator ";"

syn match dovrelEscape "\\." contained
" No "oneline": an open string goes on in the next line.
syn region dovrelString start=+"+ skip=+\\.+ end=+"+ contains=dovrelEscape
syn region dovrelString start=+'+ skip=+\\.+ end=+'+ contains=dovrelEscape
syn match dovrelComment "@@.*$" contains=dovrelTodo,@Spell
syn keyword dovrelTodo TODO FIXME contained

" A bracket keeps its line open: no statement begins in it, and a semicolon ends none.
syn cluster dovrelExpression contains=dovrelUnknown,dovrelVariable,dovrelCall,dovrelNumber,
      \dovrelFloat,dovrelVarargs,dovrelBoolean,dovrelBuiltin,dovrelLibrary,dovrelLibraryConstant,
      \dovrelLibraryIndex,dovrelOperator,dovrelAssignment,dovrelLogical,dovrelNot,dovrelSeparator,
      \dovrelString,dovrelComment,dovrelBadSeparator,dovrelParentheses,dovrelBrackets,dovrelBraces
syn match dovrelBadSeparator ";" contained
syn region dovrelParentheses matchgroup=dovrelBracket start="(" end=")" transparent
      \ contains=@dovrelExpression
syn region dovrelBrackets matchgroup=dovrelBracket start="\[" end="\]" transparent
      \ contains=@dovrelExpression
syn region dovrelBraces matchgroup=dovrelBracket start="{" end="}" transparent
      \ contains=@dovrelExpression,dovrelKey,dovrelKeySeparator
call s:match('dovrelKey', s:name . '\%(\s*\%(:\|==\@!\)\)\@=', 'contained')
syn match dovrelKeySeparator ":\|==\@!" contained
" Redefined behind the separator above, which would take the second half of each.
syn match dovrelOperator "[=!<>]=\|\~="

call s:match('dovrelConditional', s:start . s:words('else elseif if'))
call s:match('dovrelLoop', s:start . s:words('while for repeat until break'))
call s:match('dovrelLoop', '\%(\%(^\|;\)\s*for\s[^=;("''[{]*\)\@<=in' . s:end)
call s:match('dovrelEnd', s:start . 'end' . s:end)
call s:match('dovrelReturn', s:start . 'return' . s:end)
call s:match('dovrelModifier', s:start . '\%(local\|native\)\%(\s\+[A-Za-z_$]\)\@=')
call s:match('dovrelModifier', s:start . 'decay\%(\s\+function' . s:end . '\)\@=')

" The head of a function, behind the word.
let s:function = '\%(\%(^\|;\)\s*\%(\%(local\|native\|decay\)\s\+\)\=\)\@<=function' . s:end
call s:match('dovrelFunction', s:function)
call s:match('dovrelFunctionName', '\%(' . s:function . '\s*\)\@<=' . s:name . s:end,
      \ 'skipwhite nextgroup=dovrelParameters,dovrelFunctionIndex')
syn region dovrelFunctionIndex matchgroup=dovrelBracket start="\[" end="\]" transparent contained
      \ contains=@dovrelExpression skipwhite nextgroup=dovrelParameters,dovrelFunctionIndex
syn region dovrelParameters matchgroup=dovrelBracket start="(" end=")" transparent contained
      \ contains=dovrelUnknown,dovrelVarargs,dovrelParameter,dovrelSeparator,dovrelComment
call s:match('dovrelParameter', s:name . s:end, 'contained')

" Blocks, for folding.
function! s:block(group, start, end_group, end) abort
  execute 'syn region dovrelBlock transparent fold contains=TOP'
        \ 'matchgroup=' . a:group 'start="' . a:start . '"'
        \ 'matchgroup=' . a:end_group 'end="' . s:start . a:end . s:end . '"'
endfunction
call s:block('dovrelConditional', s:start . 'if' . s:end, 'dovrelEnd', 'end')
call s:block('dovrelLoop', s:start . s:words('while for'), 'dovrelEnd', 'end')
call s:block('dovrelFunction', s:function, 'dovrelEnd', 'end')
call s:block('dovrelLoop', s:start . 'repeat' . s:end, 'dovrelLoop', 'until')

hi def link dovrelUnknown Error
hi def link dovrelBadSeparator Error
hi def link dovrelCall Function
hi def link dovrelFunctionName Function
hi def link dovrelParameter Identifier
hi def link dovrelKey Identifier
hi def link dovrelNumber Number
hi def link dovrelFloat Float
hi def link dovrelBoolean Boolean
hi def link dovrelNot Constant
hi def link dovrelVarargs Special
hi def link dovrelBuiltin Function
hi def link dovrelQuotedFunction Function
hi def link dovrelLibrary Type
hi def link dovrelLibraryName Type
hi def link dovrelLibraryConstant Constant
hi def link dovrelQuotedConstant Constant
hi def link dovrelLibraryBracket Delimiter
hi def link dovrelBracket Delimiter
hi def link dovrelSeparator Delimiter
hi def link dovrelTerminator Delimiter
hi def link dovrelKeySeparator Delimiter
hi def link dovrelOperator Operator
hi def link dovrelAssignment Operator
hi def link dovrelLogical Operator
hi def link dovrelString String
hi def link dovrelEscape SpecialChar
hi def link dovrelComment Comment
hi def link dovrelTodo Todo
hi def link dovrelConditional Conditional
hi def link dovrelLoop Repeat
hi def link dovrelEnd Keyword
hi def link dovrelReturn Keyword
hi def link dovrelFunction Keyword
hi def link dovrelModifier StorageClass

delfunction s:match
delfunction s:words
delfunction s:words_of
delfunction s:member
delfunction s:block
unlet s:char s:end s:name s:start s:function

let b:current_syntax = 'dovrelscript'
let &cpo = s:cpo_save
unlet s:cpo_save
