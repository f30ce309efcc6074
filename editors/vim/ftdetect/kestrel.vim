autocmd BufNewFile,BufRead *.ks set filetype=kestrel
