" Vim syntax file
" Language: formfill tables and initial-parameters files
"
" "&N;" and "$N;" select a header or a record field for the text that
" follows, "@" ends a record, ">" at the start of a line among the records
" is a page mark, and "\" takes the next character literally. See
" formfill(5). (A parameters file knows no escapes; its files rarely hold a
" backslash.)
if exists('b:current_syntax')
  finish
endif

syn match formfillRecordEnd /@/
syn match formfillPageMark /^>/
syn match formfillHeaderSelector /&\d*;/
syn match formfillRecordSelector /\$\d*;/
syn match formfillEscape /\\./

hi def link formfillRecordEnd Statement
hi def link formfillPageMark PreProc
hi def link formfillHeaderSelector Type
hi def link formfillRecordSelector Identifier
hi def link formfillEscape SpecialChar

let b:current_syntax = 'formfilltable'
