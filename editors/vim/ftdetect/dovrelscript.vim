autocmd BufNewFile,BufRead *.dv setfiletype dovrelscript
