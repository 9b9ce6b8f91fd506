" Vim syntax file
" Language: formfill template sections (NAME.1, NAME.2, NAME.3)
"
" A line that begins with ">" is a command; every other line is text whose
" markers formfill replaces: "$N" and "&N" (also "$$N", "&&N", with "=" or
" ">" for centred or right-aligned) reserve a stretch up to the next "?",
" "$" or "&"; "@D", "@T", "@N", "@@N" are put in where they stand; a run of
" "#" is the page counter. Templates have no escapes: every such character
" is a marker. See formfill(5).
if exists('b:current_syntax')
  finish
endif

" Commands. Anything else after ">" is refused when the section loads, and
" so is a symbol declaration (">X=&N"), which formfill never accepts.
syn match formfillBadCommand /^>.*/
syn match formfillDefine /^>.=[&$]\d*/
syn match formfillLabel /^>\d\+/
syn match formfillJump /^>\%(jump to\|ПЕРЕХОД\)/ nextgroup=formfillJumpArgs
syn match formfillJumpArgs /.*/ contained contains=formfillNumber,formfillCondition
syn match formfillRepeat /^>\%(repeat\|ПОВТОР\)/ nextgroup=formfillRepeatArgs
syn match formfillRepeatArgs /.*/ contained contains=formfillNumber
syn match formfillNumber /\d\+/ contained
syn match formfillCondition /[$&]\d*^\=/ contained

" Text lines. A stretch runs from its marker through "?", or up to the next
" "$" or "&", or to the line's end; the text in a header stretch becomes
" part of that header field when the section loads.
syn match formfillRecordStretch /\$\$\=\d\+[=>]\=[^?$&]*?\=/
      \ contains=formfillRecordField,formfillStretchEnd
syn match formfillHeaderStretch /&&\=\d\+[=>]\=[^?$&]*?\=/
      \ contains=formfillHeaderField,formfillHeaderText,formfillStretchEnd
syn match formfillRecordField /\$\$\=\d\+[=>]\=/ contained
syn match formfillHeaderField /&&\=\d\+[=>]\=/ contained
syn match formfillHeaderText /[^ ?$&][^?$&]*/ contained contains=formfillValue
syn match formfillStretchEnd /?/ contained
syn match formfillValue /@[DT]\|@@\=\d\+/
syn match formfillCounter /#\+/

hi def link formfillBadCommand Error
hi def link formfillDefine Error
hi def link formfillLabel Label
hi def link formfillJump Conditional
hi def link formfillRepeat Repeat
hi def link formfillNumber Number
hi def link formfillCondition Identifier
hi def link formfillRecordField Identifier
hi def link formfillHeaderField Type
hi def link formfillHeaderText String
hi def link formfillStretchEnd Delimiter
hi def link formfillValue Special
hi def link formfillCounter Special

let b:current_syntax = 'formfill'
