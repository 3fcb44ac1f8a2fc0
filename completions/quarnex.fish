# fish completion for quarnex and unquarnex
function __quarnex_restores
    set -l words (commandline -opc)
    string match -q '*unquarnex*' -- $words[1]; or test "$words[2]" = -d
end

function __quarnex_is_first
    test (count (commandline -opc)) = 1
end

function __quarnex_packed_files
    __fish_complete_path (commandline -ct) | string match -rei '(?:/|\.qrx)(?:\t.*)?$'
end

set -l both -c quarnex -c unquarnex
complete $both -o r -d 'include directories'
complete $both -o v -d 'with -r, print the name of each file'
complete $both -s p -x -a '(seq 0 16)' -d 'worker threads, up to 16; 0 does all work in one thread'
complete $both -n __quarnex_restores -f -a '(__quarnex_packed_files)'
complete -c quarnex -n __quarnex_is_first -o d -d restore

set -l packs -c quarnex -n 'not __quarnex_restores'
complete $packs -o h -d 'print a summary'
complete $packs -s b -x -d 'block size in MiB, 1 to 2047'
set -l ways 'byte-aligned tokens, restores fastest' 'static bit codes' 'adaptive prefix codes' \
    'range coder' 'binary range coder, compresses best'
set -l searches 'one probe' 'one probe, more insertions' 'lazy parsing' '2 candidates' '4 candidates' \
    '8 candidates' '16 candidates' '64 candidates' 'optimal parsing, longest matches' 'optimal parsing, all matches'
for method in (seq 5)
    for level in (seq 0 9)
        complete $packs -o $method$level -d "$ways[$method]; $searches[$(math $level + 1)]"
    end
end
