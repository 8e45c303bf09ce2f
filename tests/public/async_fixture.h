#pragma once

/// @file
/// What the tests of background requests through a decoder share.

#include "tests/support/async_scene.h"
#include "tests/support/log_capture.h"
#include "tests/support/media.h"
#include "tests/support/streams.h"

#include <framewell/ffdecoder.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>

namespace fw_test {

inline const ff::StreamCtx* video() {
    return stream_of(fw_test::clip_h264(), ff::StreamType::Video);
}

inline const ff::StreamCtx* sound() {
    return stream_of(fw_test::clip_pcm(), ff::StreamType::Audio);
}

/// The request for picture `number` of a clip with 30 pictures per second.
inline ff::RequireVideoFrame picture(int number) {
    ff::RequireVideoFrame req;
    req.time = {number, 30};
    req.format = ff::PixelFormat::Yuv420p;
    return req;
}

inline ff::RequireAudioFrame tenth(int number) {
    ff::RequireAudioFrame req;
    req.range = {{number, 10}, {number + 1, 10}};
    return req;
}

inline int number_of(const ff::VFrameCtx& picture) {
    return static_cast<int>((picture.pts * 30 + 500000) / 1000000);
}

/// The fixture: a gate for the first request, and a list of the pictures that were answered.
class FFDecoderAsyncTest : public ::testing::Test {
protected:
    /// A callback that adds the number of the picture to `answers`, and carries something.
    ff::FFDecoder::VideoCallback answer(Carried* carried = nullptr) {
        return [this, thing = carried != nullptr ? carried->make() : nullptr](
                   const std::shared_ptr<ff::VFrameCtx>& got) { answers.add(number_of(*got)); };
    }

    /// A decoder whose first request waits in `gate`, and whose requests are counted.
    std::unique_ptr<WatchedDecoder> gated() {
        return std::make_unique<WatchedDecoder>([this](const ff::RequireVideoFrame&, int) {
            if (visits++ == 0) {
                gate.pass();
            }
        });
    }

    /// Asks for picture 0 and returns when the background thread is held with it.
    void hold(ff::FFDecoder& decoder, Carried* carried = nullptr) {
        decoder.getVideoFrameAsync(held, answer(carried));
        gate.wait_for(1);
    }

    Watchdog watchdog{"FFDecoderAsyncTest"};
    LogCapture log;
    Gate gate;
    std::atomic<int> visits{0};
    Answers<int> answers;
    ff::RequireVideoFrame held = picture(0);
};

}  // namespace fw_test
