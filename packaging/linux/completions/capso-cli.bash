# bash completion for capso-cli

_capso_cli()
{
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD - 1]} command= word
    local commands="list update settings modes signal package doctor"
    # bash takes "performance=on" for three words.
    if [[ $cur == "=" ]]; then
        cur=
        COMPREPLY=($(compgen -W "on off" -- "$cur"))
        return
    fi
    if [[ $prev == "=" ]]; then
        COMPREPLY=($(compgen -W "on off" -- "$cur"))
        return
    fi
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        if [[ " $commands " == *" $word "* ]]; then
            command=$word
            break
        fi
    done
    local options="--json --verbose --help"
    case $command in
        "") COMPREPLY=($(compgen -W "$commands $options --version" -- "$cur")) ;;
        update)
            if [[ $cur == -* ]]; then
                COMPREPLY=($(compgen -W "--all --unless-version $options" -- "$cur"))
            elif [[ $prev != --unless-version ]]; then
                _capso_cli_packages
            fi ;;
        package)
            if [[ $cur == -* ]]; then
                COMPREPLY=($(compgen -W "$options" -- "$cur"))
            else
                _capso_cli_packages
            fi ;;
        settings)
            if [[ $cur == -* ]]; then
                COMPREPLY=($(compgen -W "$options" -- "$cur"))
            else
                COMPREPLY=($(compgen -W "input-resolution= aspect-ratio= performance= audio-selector=" -- "$cur"))
                compopt -o nospace
            fi ;;
        modes)
            if [[ $cur == -* ]]; then
                COMPREPLY=($(compgen -W "$options" -- "$cur"))
            else
                COMPREPLY=($(compgen -W "1= 2= 3=" -- "$cur"))
                compopt -o nospace
            fi ;;
        doctor) COMPREPLY=($(compgen -W "--rules $options" -- "$cur")) ;;
        signal) COMPREPLY=($(compgen -W "--watch $options" -- "$cur")) ;;
        *) COMPREPLY=($(compgen -W "$options" -- "$cur")) ;;
    esac
}

_capso_cli_packages()
{
    local IFS=$'\n'
    compopt -o filenames
    COMPREPLY=($(compgen -f -X '!*.fw' -- "$cur") $(compgen -d -- "$cur"))
}

complete -F _capso_cli capso-cli
