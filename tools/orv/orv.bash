# SPDX-License-Identifier: Apache-2.0
# SPDX-FileCopyrightText: The ORV authors
# Bash completion for orv.
_orv() {
    local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]}
    local common="--json --arch --target-name --offload --no-debug-info --debug-root --debuginfod --symbol-file --reading --quiet --log-level --version --help"
    local commands="symbolize info candidates symbols sections segments address units files lines function inlines stackvar optreports"
    local command="" word
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        case $word in
            symbolize | info | candidates | symbols | sections | segments | address | units | files | lines | function | inlines | stackvar | optreports)
                command=$word
                break
                ;;
        esac
    done
    case $prev in
        --arch) COMPREPLY=($(compgen -W "arm arm64 em180 em181 em50 ppc64le qdc1 qdc2 riscv64 rln1 rln2 unknown x86 x86-64" -- "$cur")); return ;;
        --log-level) COMPREPLY=($(compgen -W "trace info warn error off" -- "$cur")); return ;;
        --kind) COMPREPLY=($(compgen -W "function data other" -- "$cur")); return ;;
        --debug-root) COMPREPLY=($(compgen -d -- "$cur")); return ;;
        --reading) COMPREPLY=($(compgen -W "classic modern" -- "$cur")); return ;;
        --symbol-file) COMPREPLY=($(compgen -f -- "$cur")); return ;;
        --range | --pc | --sp | --fp | --unit | --target-name) return ;;
    esac
    if [[ -z $command ]]; then
        COMPREPLY=($(compgen -W "$commands $common" -- "$cur"))
        return
    fi
    if [[ $cur == -* ]]; then
        local own=""
        case $command in
            symbolize) own="-e --exe -f --functions -i --inlines --no-inlines -C --demangle -a --addresses -p --pretty-print -s --basenames -j --section -b --target -r -R" ;;
            symbols) own="--kind --range --disjoint -C --demangle" ;;
            address) own="--rva --file-offset" ;;
            lines) own="--file --range --unit --all" ;;
            stackvar) own="--pc --sp --fp" ;;
            optreports) own="--range" ;;
        esac
        COMPREPLY=($(compgen -W "$own $common" -- "$cur"))
        return
    fi
    COMPREPLY=($(compgen -f -- "$cur"))
}
complete -o filenames -F _orv orv
