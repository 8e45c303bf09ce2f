# Inside the clean system; lines that begin with three spaces are shown.
apt-get -q update
apt-get -q install -y ./libframewell1_*.deb ./framewell-tools_*.deb

framewell --version | sed 's/^/   /'
framewell probe clip.mp4 | sed 's/^/   /'
framewell frame clip.mp4 --at 1.5 -o picture.png | sed 's/^/   /'
framewell probe picture.png | grep -q 320x240
framewell audio clip.mp4 --from 1 --to 2 -o sound.wav
framewell verify clip.mp4

for file in /usr/share/man/man1/framewell.1.gz /usr/share/bash-completion/completions/framewell \
    /usr/share/zsh/vendor-completions/_framewell \
    /usr/share/fish/vendor_completions.d/framewell.fish; do
    [ -s "$file" ] || { echo "$file is missing"; exit 1; }
done
for package in libframewell1 framewell-tools; do
    for file in copyright changelog.gz changelog.Debian.gz; do
        [ -s "/usr/share/doc/$package/$file" ] || { echo "$package has no $file"; exit 1; }
    done
done
