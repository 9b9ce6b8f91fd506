" Vim compiler file
" Compiler: formfill-check, formfill's template checker
"
" formfill-check reports as compilers do, FILE:LINE:COL: SEVERITY: MESSAGE
" [-WNAME], followed by the line and a caret, which are left out of the
" quickfix list. Give it formfill's own options:
"
"   :compiler formfill
"   :make -Bform -Itable.txt
if exists('current_compiler')
  finish
endif
let current_compiler = 'formfill'

if exists(':CompilerSet') != 2
  command -nargs=* CompilerSet setlocal <args>
endif

CompilerSet makeprg=formfill-check
CompilerSet errorformat=%f:%l:%c:\ %trror:\ %m,
      \%f:%l:%c:\ %tarning:\ %m,
      \%f:%l:%c:\ %tote:\ %m,
      \formfill-check:\ %trror:\ %m,
      \formfill-check:\ %tarning:\ %m,
      \formfill-check:\ %tote:\ %m,
      \%-G\ %.%#
