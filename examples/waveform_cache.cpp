// Prints the smallest and the largest sample of each column of FILE's waveform. The sound is
// decoded into FOLDER once and read from there until FILE changes: waveform_cache FILE FOLDER
// COLUMNS
#include <framewell/framewell.h>
#include <framewell/utils/file_id.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

namespace {

constexpr int kRate = 8000;  // enough for a drawing

// [fill]
/// Decodes the whole sound, mixed to one channel, into a file of bare 16-bit samples.
bool fill(const char* movie_path, const std::string& path) {
    std::fprintf(stderr, "decoding ...\n");
    const ff::MovieCtx* const movie = ff::FFDecoder::probe(movie_path);
    ff::FFDecoder decoder;
    ff::WaveFiles store;
    const std::string unfinished = path + ".part";  // a file of the final name is complete
    if (!decoder.open(ff::first_stream(movie, ff::StreamType::Audio)) ||
        !store.open({unfinished}, "wb")) {
        return false;
    }
    ff::RequireAudioFrame request;
    request.sample_rate = kRate;
    request.channels = 1;
    const ff::Rational end{movie->duration, 1000000};
    for (int second = 0; ff::Rational{second, 1} < end; second++) {
        request.range = {{second, 1}, {second + 1, 1}};
        const auto span = decoder.getAudioFrame(request);
        const int bytes = span ? span->nb_samples * 2 : 0;
        const std::uint8_t* planes[] = {span ? span->data[0] : nullptr};
        if (bytes > 0 && store.write(planes, bytes) != bytes) {
            return false;  // the disk is full
        }
    }
    store.close();
    return std::rename(unfinished.c_str(), path.c_str()) == 0;
}

// [fill]

// [draw]
void draw(ff::WaveFiles* store, int columns) {
    const long long samples = store->size() / 2;
    std::int16_t block[8192];
    for (int column = 0; column < columns; column++) {
        const long long first = samples * column / columns;
        long long left = samples * (column + 1) / columns - first;
        int low = 0;
        int high = 0;
        store->seek(first * 2, SEEK_SET);
        while (left > 0) {
            std::uint8_t* planes[] = {reinterpret_cast<std::uint8_t*>(block)};
            const int wanted = static_cast<int>(std::min<long long>(left, 8192));
            const int got = store->read(planes, 0, wanted * 2) / 2;
            if (got <= 0) {
                break;
            }
            const auto [least, most] = std::minmax_element(block, block + got);
            low = std::min<int>(low, *least);
            high = std::max<int>(high, *most);
            left -= got;
        }
        std::printf("%d %d\n", low, high);
    }
}

// [draw]

}  // namespace

int main(int argc, char** argv) {
    const int columns = argc == 4 ? std::atoi(argv[3]) : 0;
    if (columns < 1) {
        std::fprintf(stderr, "usage: waveform_cache FILE FOLDER COLUMNS\n");
        return 2;
    }
    const std::string path = std::string(argv[2]) + "/" + fs::file_unique_id(argv[1]) + ".pcm";
    ff::WaveFiles store;
    if ((!std::ifstream(path) && !fill(argv[1], path)) || !store.open({path}, "rb")) {
        return 1;
    }
    draw(&store, columns);
}
