" Writes what Vim makes of the script that is being edited to $RESULT, as JSON: for each line the
" syntax group of every byte, and the folds as [first, last].
set nocompatible nomore
filetype on
syntax on
" The script was read before there was a type to tell.
edit
set foldmethod=syntax foldminlines=0
let s:groups = []
let s:folds = []
for s:line in range(1, line('$'))
  call add(s:groups, map(range(1, len(getline(s:line))),
        \ 'synIDattr(synID(s:line, v:val, 1), "name")'))
endfor
" With the levels above it open, a line shows the fold that it begins.
for s:level in range(max(map(range(1, line('$')), 'foldlevel(v:val)')))
  let &foldlevel = s:level
  for s:line in range(1, line('$'))
    if foldclosed(s:line) == s:line
      call add(s:folds, [s:line, foldclosedend(s:line)])
    endif
  endfor
endfor
call writefile([json_encode({'filetype': &filetype, 'groups': s:groups, 'folds': s:folds})], $RESULT)
qall!
