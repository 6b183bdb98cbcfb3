" Vim filetype plugin
" Language: DovrelScript (*.dv)

if exists('b:did_ftplugin')
  finish
endif
let b:did_ftplugin = 1
let s:cpo_save = &cpo
set cpo&vim

setlocal comments=:@@
setlocal commentstring=@@\ %s
setlocal formatoptions-=t formatoptions+=croql
setlocal expandtab shiftwidth=4 softtabstop=4
" A name goes on with a "$".
setlocal iskeyword+=$
setlocal suffixesadd=.dv
" The files that a script runs: gf and :checkpath follow them.
setlocal include=\\<\\%(runFile\\\|loadFile\\\|dofile\\\|loadfile\\)\\s*(\\s*[\"']
setlocal includeexpr=substitute(v:fname,'[\"\\x27)]','','g')
setlocal define=\\<function\\s\\+
let b:undo_ftplugin = 'setlocal comments< commentstring< formatoptions< expandtab< shiftwidth<'
      \ . ' softtabstop< iskeyword< suffixesadd< include< includeexpr< define<'

" Brackets, and the words of blocks for the plugin matchit.
setlocal matchpairs=(:),{:},[:]
let b:undo_ftplugin .= ' matchpairs<'
if exists('g:loaded_matchit') || has('nvim')
  let s:first = '\%(\%(^\|;\)\s*\)\@<='
  let b:match_ignorecase = 0
  let b:match_words = s:first . '\%(if\|while\|for\|\%(\%(decay\|native\|local\)\s\+\)\=function\)\>'
        \ . ':' . s:first . '\%(elseif\|else\)\>:' . s:first . 'end\>,'
        \ . s:first . 'repeat\>:' . s:first . 'until\>'
  let b:undo_ftplugin .= ' | unlet! b:match_ignorecase b:match_words'
  unlet s:first
endif

" Neovim starts the language server, unless g:dovrel_server is 0. The program is g:dovrel_path, else
" dovrel in PATH.
if has('nvim-0.7') && get(g:, 'dovrel_server', 1) && executable(get(g:, 'dovrel_path', 'dovrel'))
  lua << EOF
  local folder = vim.fn.fnamemodify(vim.api.nvim_buf_get_name(0), ':p:h')
  local mark = vim.fn.finddir('.git', vim.fn.fnameescape(folder) .. ';')
  local server = {
    name = 'dovrel',
    cmd = { vim.g.dovrel_path or 'dovrel', 'lsp' },
    root_dir = mark ~= '' and vim.fn.fnamemodify(mark, ':p:h:h') or folder,
  }
  if vim.lsp.start then
    vim.lsp.start(server)
  else
    -- Neovim 0.7 leaves to its callers which files share a server: those of one folder.
    dovrel_servers = dovrel_servers or {}
    server.on_exit = function() dovrel_servers[server.root_dir] = nil end
    local client = dovrel_servers[server.root_dir] or vim.lsp.start_client(server)
    dovrel_servers[server.root_dir] = client
    if client then vim.lsp.buf_attach_client(0, client) end
  end
EOF
endif

let &cpo = s:cpo_save
unlet s:cpo_save
