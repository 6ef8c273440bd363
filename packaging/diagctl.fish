# Fish completion for diagctl, which knows itself what can complete a word.

function __diagctl_complete
    set -l words (commandline -opc) (commandline -ct)
    for each in ($words[1] complete $words[2..-1] 2>/dev/null)
        if test $each = :files
            __fish_complete_path (commandline -ct)
        else
            echo $each
        end
    end
end
complete -c diagctl -f -a '(__diagctl_complete)'
