# complete.zsh SCRIPT LINES FOUND-FOLDER: what zsh offers at the end of each line, in a file of the
# line's number. Completion is a matter of zsh's line editor, which wants a terminal: an interactive
# zsh on a pseudo terminal starts its editor, which asks for all lines and ends.
zmodload zsh/zpty
settings=$(mktemp -d)
trap 'rm -rf $settings' EXIT

cat >$settings/.zshrc <<'ZSHRC'
fpath=(${script:h} $fpath)
autoload -Uz compinit
compinit -u -D

# Notes what would be offered. Calls that only ask which words match are not for the user.
compadd() {
    if [[ ${@[1,(i)(-|--)]} == *-[OAD]\ * ]]; then
        builtin compadd "$@"
        return
    fi
    local -a offered
    builtin compadd -A offered "$@"
    (( $#offered )) && print -rl -- $offered >>$found/$number
    builtin compadd "$@"
}

zle-line-init() {
    local line
    number=0
    while IFS= read -r line; do
        : >$found/$number
        BUFFER=$line
        CURSOR=$#BUFFER
        zle list-choices
        number=$((number + 1))
    done <$lines
    : >$found/end
    exit
}
zle -N zle-line-init
ZSHRC

export script=$1 lines=$2 found=$3 ZDOTDIR=$settings TERM=dumb
zpty shell zsh -i -d
# Whatever it shows; ends with it.
while zpty -r shell shown; do print -rn -- $shown; done >$settings/shown
[[ -e $found/end ]] || { cat $settings/shown; print "zsh has not come to its end"; exit 1; }
