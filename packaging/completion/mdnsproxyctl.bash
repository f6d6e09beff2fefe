# SPDX-License-Identifier: MIT
# bash completion of mdnsproxyctl. The program itself says what may stand in a word's place; here words are only taken
# apart and quoted. Nothing that a stranger has named is ever evaluated.

# Appends what is typed in the line $1 to the caller's array raw, one word each, as it is typed.
_mdnsproxyctl_split()
{
    local line=$1 word= quote= c i begun=
    for ((i = 0; i < ${#line}; i++)); do
        c=${line:i:1}
        if [[ -z $quote && $c == [[:blank:]] ]]; then
            [[ -z $begun ]] || raw+=("$word")
            word= begun=
            continue
        fi
        begun=yes
        word+=$c
        case $quote$c in
            \' | \") quote=$c ;;
            \'\' | \"\") quote= ;;
            \\ | \"\\) ((++i)); word+=${line:i:1} ;;
        esac
    done
    raw+=("$word")
}

# Sets REPLY to what the shell makes of the typed word $1; the caller's quote to the quotation mark that is still open
# in it, and open to what is typed up to that mark.
_mdnsproxyctl_plain()
{
    local word=$1 c i
    REPLY= quote= open=
    for ((i = 0; i < ${#word}; i++)); do
        c=${word:i:1}
        case $quote$c in
            \' | \") quote=$c open=${word:0:i+1} ;;
            \'\' | \"\") quote= open= ;;
            \\ | \"\\)
                ((++i))
                c=${word:i:1}
                # Between double quotes a backslash protects only these.
                [[ -z $quote || $c == [\$\`\"\\] ]] || REPLY+=\\
                REPLY+=$c
                ;;
            *) REPLY+=$c ;;
        esac
    done
}

# Sets REPLY to the text $1 as it is written where the quotation mark $2, or none, is open.
_mdnsproxyctl_quoted()
{
    local text=$1 c i
    REPLY=
    for ((i = 0; i < ${#text}; i++)); do
        c=${text:i:1}
        case $2$c in
            \'\') REPLY+="'\\''" ;;
            \"[\$\`\"\\]) REPLY+=\\$c ;;
            \"!) REPLY+="\"'!'\"" ;;  # a command of the history otherwise, and a backslash would stay
            [\'\"]?) REPLY+=$c ;;
            [[:alnum:]] | [-_./,%+@]) REPLY+=$c ;;
            [[:ascii:]]) REPLY+=\\$c ;;
            *) REPLY+=$c ;;
        esac
    done
}

_mdnsproxyctl()
{
    local REPLY quote= open= raw=() words=() candidates=() word typed kept
    if [[ -n ${COMP_LINE-} ]]; then
        _mdnsproxyctl_split "${COMP_LINE:0:COMP_POINT}"
    else
        raw=("${COMP_WORDS[@]:0:COMP_CWORD+1}")
    fi
    for word in "${raw[@]:1}"; do
        _mdnsproxyctl_plain "$word"
        words+=("$REPLY")
    done
    # What bash leaves as it is typed: all before an open quotation mark, or before the last = or :.
    kept=$open
    if [[ -z $quote ]]; then
        typed=${COMP_WORDS[COMP_CWORD]}
        [[ $typed != *[!=:]* ]] && typed=
        [[ ${raw[-1]} == *"$typed" ]] && kept=${raw[-1]:0:${#raw[-1]}-${#typed}}
    fi
    COMPREPLY=()
    mapfile -d '' -t candidates < <(mdnsproxyctl complete "${words[@]}" 2>/dev/null)
    if [[ ${candidates[0]-} == files ]]; then
        compopt -o default 2>/dev/null
        return 0
    fi
    local state=$quote
    _mdnsproxyctl_plain "$kept"
    kept=$REPLY
    for word in "${candidates[@]:1}"; do
        _mdnsproxyctl_quoted "${word:${#kept}}" "$state"
        COMPREPLY+=("$REPLY")
    done
}

complete -F _mdnsproxyctl mdnsproxyctl
