# Completion of dovrel for bash.

_dovrel() {
    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local commands='run repl check format test profile trace doc lsp dap' options=
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        mapfile -t COMPREPLY < <(compgen -W "$commands --help --version" -- "$word")
        return
    fi
    case ${COMP_WORDS[1]} in
        run) options='-e --checked --checked=error' ;;
        check)
            case $before in
                --format)
                    mapfile -t COMPREPLY < <(compgen -W 'text json sarif' -- "$word")
                    return
                    ;;
                --explain)
                    mapfile -t COMPREPLY < <(
                        compgen -W "$(dovrel check --codes 2>/dev/null | cut -d ' ' -f 1)" -- "$word")
                    return
                    ;;
            esac
            options='--format --strict --explain --codes'
            ;;
        format) options='--check --diff' ;;
        test)
            case $before in
                --filter | --timeout | --coverage-least) return ;;
                --junit | --coverage-html | --coverage-lcov)
                    compopt -o filenames
                    mapfile -t COMPREPLY < <(compgen -f -- "$word")
                    return
                    ;;
            esac
            options='--filter --junit --timeout --list --output --checked=off --checked=error
                --coverage --coverage-html --coverage-lcov --coverage-least'
            ;;
        profile | trace)
            case $before in
                -e | --lines | --function | --line | --variable) return ;;
                --svg | --output)
                    compopt -o filenames
                    mapfile -t COMPREPLY < <(compgen -f -- "$word")
                    return
                    ;;
            esac
            options='-e --lines --annotate --svg --output'
            [[ ${COMP_WORDS[1]} != trace ]] ||
                options='-e --function --line --variable --errors --output'
            ;;
        doc)
            if [[ $word != -* ]]; then
                # Quotes and brackets part words here, so members are offered as `string.sub`.
                local names
                names=$(dovrel doc --names 2>/dev/null | sed 's/\["\(.*\)"\]/.\1/')
                mapfile -t COMPREPLY < <(compgen -W "$names" -- "$word")
                return
            fi
            options='--names'
            ;;
        lsp) options='--stdio' ;;
        repl | dap) ;;
        *) return ;;
    esac
    if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$options --help --version" -- "$word")
    elif [[ ${COMP_WORDS[1]} != @(repl|lsp|dap) ]]; then
        compopt -o filenames 2>/dev/null
        # The script's own arguments may be any files.
        local pattern='!*.dv'
        [[ ${COMP_WORDS[1]} != run ]] || ((COMP_CWORD == 2)) || pattern=
        mapfile -t COMPREPLY < <(compgen -f -X "$pattern" -- "$word"; compgen -d -- "$word")
    fi
}

complete -F _dovrel dovrel
