" Scripts of the Kestrel language.
if exists('b:did_ftplugin')
  finish
endif
let b:did_ftplugin = 1

setlocal commentstring=//\ %s
setlocal comments=s1:/*,mb:*,ex:*/,://
setlocal formatoptions-=t formatoptions+=croql
setlocal expandtab shiftwidth=4 softtabstop=4 cindent
setlocal include=^\\s*include\\s\\+\"
setlocal suffixesadd=.ks
setlocal iskeyword+=.
" gq lays the script out; :make lists messages.
setlocal formatprg=kestrel\ fmt\ -
setlocal makeprg=kestrel\ check\ %:S
setlocal errorformat=%f:%l:%c:\ %t%*[a-z]%m,%f:%l:\ %t%*[a-z]%m,%-G%.%#

let b:undo_ftplugin = 'setlocal commentstring< comments< formatoptions< expandtab< shiftwidth<'
      \ . ' softtabstop< cindent< include< suffixesadd< iskeyword< formatprg< makeprg< errorformat<'
