# complete.bash SCRIPT LINES FOUND-FOLDER: what the function of SCRIPT offers at the end of each line,
# in a file of the line's number.
# shellcheck source=/dev/null
source "$1"

number=0
while IFS= read -r line; do
    COMP_LINE=$line
    COMP_POINT=${#line}
    # As readline does it: a word ends at white space, and "=" is a word of its own.
    read -ra COMP_WORDS <<<"${line//=/ = }"
    [[ $line != *' ' ]] || COMP_WORDS+=("")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMPREPLY=()
    _framewell framewell "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
    if [ ${#COMPREPLY[@]} -gt 0 ]; then
        printf '%s\n' "${COMPREPLY[@]}"
    fi >"$3/$number"
    number=$((number + 1))
done <"$2"
complete -p framewell >/dev/null
