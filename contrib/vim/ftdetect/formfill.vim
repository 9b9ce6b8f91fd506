" formfill: template sections (NAME.1, NAME.2, NAME.3) and tables.
"
" Section files share their endings with manual pages, so a file ending in
" .1, .2 or .3 is taken for a template only when it is named form.N or when
" its first lines look like one: a command (">jump to", ">repeat", a label)
" or a field marker, and no roff request.
function! s:FormfillSection() abort
  if expand('<afile>:t') =~# '^form\.[123]$'
    setlocal filetype=formfill
    return
  endif
  let l:lines = getline(1, 30)
  if !empty(filter(copy(l:lines), 'v:val =~# "^[.'']"'))
    return
  endif
  let l:pattern = '^>\%(jump to\|repeat\|ПЕРЕХОД\|ПОВТОР\|\d\)\|[$&][$&]\=\d'
  if !empty(filter(l:lines, 'v:val =~# l:pattern'))
    setlocal filetype=formfill
  endif
endfunction

" A table, or a parameters file, opens with a selector "&N;" or "$N;".
function! s:FormfillTable() abort
  if getline(nextnonblank(1)) =~# '^[&$]\d*;'
    setlocal filetype=formfilltable
  endif
endfunction

augroup formfill_ftdetect
  autocmd!
  autocmd BufRead,BufNewFile *.1,*.2,*.3 call s:FormfillSection()
  autocmd BufRead,BufNewFile *.tbl,*.par setlocal filetype=formfilltable
  autocmd BufRead *.txt call s:FormfillTable()
augroup END
