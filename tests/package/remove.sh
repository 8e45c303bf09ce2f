# Inside the clean system.
packages=(libframewell1 libframewell-dev framewell-tools)
owned=$(dpkg -L "${packages[@]}" | sort -u)
[ "$(wc -l <<<"$owned")" -gt 40 ] || { echo "the packages own too little: $owned"; exit 1; }
apt-get -q purge -y "${packages[@]}"

bad=0
while read -r path; do
    # Folders of others stay; files, and folders of ours, do not.
    if [ -e "$path" ] && { [ ! -d "$path" ] || [[ $path == *framewell* ]]; }; then
        echo "left behind: $path"
        bad=1
    fi
done <<<"$owned"
left=$(find / -xdev \( -path /try -o -path /proc -o -path /var/cache/apt \) -prune -o \
    -iname '*framewell*' -print)
[ -z "$left" ] || { echo "left behind: $left"; bad=1; }
states=$(dpkg-query --show --showformat='${Package} ${db:Status-Status}\n' "${packages[@]}" 2>/dev/null |
    grep -v ' not-installed$' || true)
[ -z "$states" ] || { echo "still known: $states"; bad=1; }
! ldconfig -p | grep framewell || bad=1
exit $bad
