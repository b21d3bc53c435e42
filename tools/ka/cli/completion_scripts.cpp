// SPDX-License-Identifier: MIT
//
// See completion_scripts.h. None of the scripts knows an option: each hands the words to ka, and shows its answer.
#include "completion_scripts.h"

static constexpr const char *bash_script = R"(# SPDX-License-Identifier: MIT
# Completion of ka in bash.
_ka() {
    # Bash takes = and : for words of their own. For ka they join the words around them, and what is left of the
    # last of them is not part of a reply.
    local word words=() joins=
    for word in "${COMP_WORDS[@]:1:COMP_CWORD}"; do
        if [[ ${#words[@]} -gt 0 && ( $joins || $word == [=:]* ) ]]; then
            words[-1]+=$word
        else
            words+=("${word//[\\\"\']/}")
        fi
        [[ $word == *[=:] ]] && joins=1 || joins=
    done
    local current=${COMP_WORDS[COMP_CWORD]} answer
    [[ $current != [=:] ]] || current=
    mapfile -t answer < <("$1" complete "${words[@]}" 2>/dev/null)
    COMPREPLY=()
    case ${answer[0]} in
    files | executables)
        compopt -o filenames
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        [[ ${answer[0]} == executables ]] || return 0
        local path paths=("${COMPREPLY[@]}")
        COMPREPLY=()
        for path in "${paths[@]}"; do
            [[ ! -x ${path/#\~\//$HOME/} ]] || COMPREPLY+=("$path")
        done
        for word in "${answer[@]:1}"; do
            COMPREPLY+=("${word%%$'\t'*}")
        done
        ;;
    words)
        for word in "${answer[@]:1}"; do
            word=${word%%$'\t'*}
            COMPREPLY+=("${word#"${words[-1]%"$current"}"}")
        done
        ;;
    esac
}
complete -F _ka ka
)";

static constexpr const char *zsh_script = R"(#compdef ka
# SPDX-License-Identifier: MIT
# Completion of ka in zsh.
_ka() {
    local -a answer described
    local line
    answer=("${(@f)$(${(Q)words[1]} complete "${(@Q)words[2,CURRENT]}" 2>/dev/null)}")
    case $answer[1] in
    files | executables)
        compset -P '--*='
        if [[ $answer[1] == files ]]; then
            _files
        else
            local none=1
            _files -g '*(-*)' && none=0
            (( $#answer < 2 )) || { compadd -- "${(@)answer[2,-1]%%$'\t'*}" && none=0 }
            return none
        fi
        ;;
    words)
        for line in "${(@)answer[2,-1]}"; do
            described+=("${${line%%$'\t'*}//:/\\:}:${line#*$'\t'}")
        done
        _describe -t ka ka described
        ;;
    esac
}
if [ "$funcstack[1]" = _ka ]; then _ka "$@"; else compdef _ka ka; fi
)";

static constexpr const char *fish_script = R"(# SPDX-License-Identifier: MIT
# Completion of ka in fish.
function __ka_complete
    set -l words (commandline -opc)
    set -l current (commandline -ct)
    set -l answer ($words[1] complete $words[2..] $current 2>/dev/null)
    switch "$answer[1]"
        case files executables
            test (count $answer) -lt 2; or string join \n -- $answer[2..]
            set -l before (string match -r -- '^--[^=]*=' $current; or echo)
            for path in (__fish_complete_path (string replace -r -- '^--[^=]*=' '' $current))
                if test $answer[1] = files; or test -x (string replace -r -- '^~/' $HOME/ (string split -f1 \t -- $path))
                    echo $before$path
                end
            end
        case words
            string join \n -- $answer[2..]
    end
end
complete -c ka -f -a '(__ka_complete)'
)";

const char *completion_script(const std::string &shell)
{
    if (shell == "bash") return bash_script;
    return shell == "zsh" ? zsh_script : fish_script;
}
