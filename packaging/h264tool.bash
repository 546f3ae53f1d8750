# Completion of h264tool for bash: subcommands, options (as --help lists them) and the values that options take.
_h264tool() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} word command='' words IFS=$' \n'
    COMPREPLY=()
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [[ $word != -* ]]; then
            command=$word
            break
        fi
    done
    case $command/$previous in
    dump/--level) words='0 1 2 3 4 5 6 7 8' ;;
    dump/--types) words='slice partition-a partition-b partition-c idr sei sps pps aud eoseq eostream filler sps-ext prefix subset-sps dps slice-aux slice-ext slice-ext-3d' ;;
    rewrite/--fixed-frame-rate | rewrite/--full-range) words='0 1' ;;
    rewrite/--hrd) words='nal vcl' ;;
    /*) words='dump extract insert report rewrite summary --help --quiet --version' ;;
    *)
        if [[ $current == -* ]]; then
            words=$("${COMP_WORDS[0]}" "$command" --help 2>/dev/null | grep -oE -- '(^| |,)--?[a-z][a-z-]*' | tr -d ' ,')
        else
            # shellcheck disable=SC2207
            COMPREPLY=($(compgen -f -- "$current"))
            return
        fi
        ;;
    esac
    # shellcheck disable=SC2207
    COMPREPLY=($(compgen -W "$words" -- "$current"))
}
complete -o filenames -F _h264tool h264tool
