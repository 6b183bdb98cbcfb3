" Vim indent file
" Language: DovrelScript (*.dv)

if exists('b:did_indent')
  finish
endif
let b:did_indent = 1

setlocal autoindent nosmartindent
setlocal indentexpr=GetDovrelIndent(v:lnum)
setlocal indentkeys=0{,0},0),0],!^F,o,O,0=end,0=else,0=elseif,0=until
let b:undo_indent = 'setlocal autoindent< smartindent< indentexpr< indentkeys<'

if exists('*GetDovrelIndent')
  finish
endif

" A line without its strings and its comment.
function! s:code(lnum) abort
  let line = substitute(getline(a:lnum), '\("\%(\\.\|[^"\\]\)*"\|''\%(\\.\|[^''\\]\)*''\)', '""', 'g')
  return substitute(line, '@@.*', '', '')
endfunction

" How many blocks and brackets the code leaves open: less than 0 if it closes more.
function! s:opened(code) abort
  let open = 0
  for part in split(a:code, ';')
    let word = matchstr(part, '^\s*\zs[A-Za-z_$][A-Za-z0-9_$]*')
    if word =~# '^\%(decay\|native\|local\)$'
      let word = matchstr(part, '^\s*\w\+\s\+\zsfunction\>')
    endif
    if word =~# '^\%(if\|while\|for\|repeat\|function\)$'
      let open += 1
    elseif word =~# '^\%(end\|until\)$'
      let open -= 1
    endif
  endfor
  return open + s:brackets(a:code)
endfunction

function! s:brackets(code) abort
  return count(a:code, '(') + count(a:code, '[') + count(a:code, '{')
        \ - count(a:code, ')') - count(a:code, ']') - count(a:code, '}')
endfunction

function! s:stepsOut(code) abort
  return a:code =~# '^\s*\%(\%(end\|else\|elseif\|until\)\>\|[])}]\)'
endfunction

function! GetDovrelIndent(lnum) abort
  let previous = prevnonblank(a:lnum - 1)
  if previous == 0
    return 0
  endif
  let code = s:code(previous)
  let steps = s:opened(code)
  " A line that steps out stands where its block does, and `else` opens the next branch.
  if s:stepsOut(code)
    let steps += 1
  endif
  let indent = indent(previous) + (steps > 0 ? 1 : steps < 0 ? -1 : 0) * shiftwidth()
  if s:stepsOut(s:code(a:lnum))
    let indent -= shiftwidth()
  endif
  return indent < 0 ? 0 : indent
endfunction
