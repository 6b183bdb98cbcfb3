" Vim compiler file
" Compiler: dovrel check

if exists('current_compiler')
  finish
endif
let current_compiler = 'dovrel'

if exists(':CompilerSet') != 2
  command -nargs=* CompilerSet setlocal <args>
endif

let s:cpo_save = &cpo
set cpo&vim

" :make checks the file, and :make FOLDER all below a folder.
execute 'CompilerSet makeprg=' . escape(get(g:, 'dovrel_path', 'dovrel'), ' \|"')
      \ . '\ check\ $*\ %:S'
CompilerSet errorformat=%f:%l:%c:\ %trror\ %m,%f:%l:%c:\ %tarning\ %m,%-G%.%#

let &cpo = s:cpo_save
unlet s:cpo_save
