# Inside the clean system; lines that begin with three spaces are shown.
apt-get -q install -y ./libframewell-dev_*.deb g++ make cmake pkg-config

check_picture() {
    "$1" clip.mp4 1500 >picture.pam
    head -n 3 picture.pam | grep -qx 'WIDTH 320'
    echo "   $1: $(stat -c %s picture.pam) bytes of picture"
}

# shellcheck disable=SC2046  # several arguments
c++ -std=c++17 frame_at.cpp $(pkg-config --cflags --libs framewell) -o by-pkg-config
check_picture ./by-pkg-config

cmake -S . -B build
cmake --build build
check_picture build/app
