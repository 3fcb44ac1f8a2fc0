# fish completion for qrx, unqrx and qrxcat
set -g __qrx_commands test list info verify cat recover split join bench

# __qrx_uses COMMAND...: succeeds if one of these is the command ("main" stands for none).
function __qrx_uses
    set -l words (commandline -opc)
    set -l command main
    if string match -qr '(^|/)qrx$' -- $words[1]; and contains -- "$words[2]" $__qrx_commands
        set command $words[2]
    end
    contains -- $command $argv
end

function __qrx_is_first
    string match -qr '(^|/)qrx$' -- (commandline -opc)[1]; and test (count (commandline -opc)) = 1
end

# Succeeds if the operands are compressed files.
function __qrx_reads_packed
    __qrx_uses test list info verify cat recover split join; and return
    __qrx_uses bench; and return 1
    set -l words (commandline -opc)
    string match -qr '(unqrx|qrxcat)$' -- $words[1]
    or string match -qr '^(--decompress|--test|--list|-[a-zA-Z]*[dtl].*)$' -- $words[2..-1]
end

function __qrx_packed_files
    __fish_complete_path (commandline -ct) | string match -rei '(?:/|\.qrx)(?:\t.*)?$'
end

set -l all -c qrx -c unqrx -c qrxcat
complete $all -s q -l quiet -d 'print no warnings and no progress'
complete $all -s v -l verbose -d 'print details of each file'
complete $all -n 'not __qrx_uses cat' -l json -d 'print one JSON object per file'
complete $all -s h -l help -d 'print help'
complete $all -n __qrx_reads_packed -f -a '(__qrx_packed_files)'

set -l resources $all -n '__qrx_uses main test info verify cat recover split join bench'
complete $resources -s T -l threads -x -d 'worker threads; 0: one per processor'
complete $resources -l memory-limit -x -d 'limit memory by running fewer threads'

set -l outputs $all -n '__qrx_uses main recover split join'
complete $outputs -s o -l output -r -d 'write to this file'
complete $all -n '__qrx_uses main recover split' -s C -l directory -x -a '(__fish_complete_directories)' -d 'write into this directory'
complete $all -n '__qrx_uses main recover split join bench' -s f -l force -d 'overwrite existing files'
complete $outputs -l no-sync -d 'do not flush outputs to disk'

set -l main $all -n '__qrx_uses main'
complete $main -s z -l compress -d 'compress (default)'
complete $main -s d -l decompress -d decompress
complete $main -s t -l test -d 'check files'
complete $main -s l -l list -d 'list files'
complete $main -s c -l stdout -d 'write to standard output'
complete $main -s k -l keep -d 'keep sources (default)'
complete $main -l rm -d 'remove each source after its output is verified and flushed'
complete $all -n '__qrx_uses main test list info verify' -s r -l recursive -d 'include directories and all they contain'
complete $all -n '__qrx_uses main join' -l verify -d 'check each output by decoding it'
complete $main -s V -l version -d 'print the version'
for preset in (seq 9)
    complete $main -s $preset -d 'preset, from 1 (fast) to 9 (small)'
end
complete $main -l level -x -d 'preset, or method and level'
complete $all -n '__qrx_uses main split' -l no-seal -d 'write no checksum (seal)'
complete $main -l like -x -a '(__qrx_packed_files)' -d 'use the parameters of this .qrx file'
complete $all -n '__qrx_uses main bench' -s b -l block-size -x -d 'block size in MiB, 1 to 2047'

complete -c qrx -n '__qrx_uses info' -l test -d 'decode all blocks, and mark damaged ones in the map'
complete -c qrx -n '__qrx_uses verify' -l against -r -d 'original of the only file'
complete -c qrx -n '__qrx_uses cat' -l range -x -d 'bytes A:B or A+N of the original'
complete -c qrx -n '__qrx_uses split' -s n -l pieces -x -d 'number of pieces'
complete -c qrx -n '__qrx_uses split' -l blocks -x -d 'blocks per piece'
complete -c qrx -n '__qrx_uses bench' -l cells -x -d 'methods and levels, two digits each'
complete -c qrx -n '__qrx_uses bench' -l plot -r -d 'draw speeds and ratios to this file (SVG)'
complete -c qrx -n '__qrx_uses bench' -l seconds -x -d 'repeat each measurement for this long'

complete -c qrx -n __qrx_is_first -a test -d 'decode files completely to check them'
complete -c qrx -n __qrx_is_first -a list -d 'print sizes, ratios and parameters'
complete -c qrx -n __qrx_is_first -a info -d 'print all details, with a map of the blocks'
complete -c qrx -n __qrx_is_first -a verify -d 'compare files with their originals'
complete -c qrx -n __qrx_is_first -a cat -d 'write files, or a range of them, to standard output'
complete -c qrx -n __qrx_is_first -a recover -d 'save what can be read from damaged files'
complete -c qrx -n __qrx_is_first -a split -d 'split files into pieces at block boundaries'
complete -c qrx -n __qrx_is_first -a join -d 'join pieces into one file'
complete -c qrx -n __qrx_is_first -a bench -d 'measure methods and levels on your files'
