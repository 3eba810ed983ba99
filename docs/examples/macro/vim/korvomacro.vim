" Page macros of Korvo.  Copy this file to ~/.vim/syntax, and put this line into ~/.vim/filetype.vim:
"   au BufRead,BufNewFile *.ms setfiletype korvomacro
" Made by scripts/syntax.py.
if exists("b:current_syntax")
  finish
endif
syn case match
syn iskeyword @,48-57,-,_
syn match korvoConstant "\<[A-Z_][A-Za-z0-9_]*\>"
syn match korvoNumber "\<\(0x[0-9a-fA-F]\+\|\d\+\)\>"
syn keyword korvoInstruction end text text32 value value32 value-skip number document find seek push pop save restore fetch insert insert-skip
syn keyword korvoLanguage byte item const include repeat end-repeat
syn match korvoEscape contained "\\\([ntr\"\\]\|x[0-9a-fA-F]\{2}\)"
syn region korvoText start=+"+ skip=+\\.+ end=+"+ oneline contains=korvoEscape
syn match korvoComment ";.*$"
syn match korvoValue contained "{{.\{-}}}"
syn region korvoPage matchgroup=korvoLanguage start="^\s*page\>" end="^\s*end-page\>" contains=korvoValue
hi def link korvoInstruction Statement
hi def link korvoLanguage PreProc
hi def link korvoConstant Constant
hi def link korvoNumber Number
hi def link korvoEscape Special
hi def link korvoText String
hi def link korvoComment Comment
hi def link korvoValue Identifier
hi def link korvoPage String
let b:current_syntax = "korvomacro"
