#pragma once

/// @file
/// The whole library by one include: exact pictures and sound by time out of media files. Begin
/// with ff::FFDecoder, whose comment has a first program.
///
/// Which name for which question:
/// - What is in this file?                     ff::FFDecoder::probe(), or ff::getMovieInfo() alone
/// - Which of its streams is the video?        ff::first_stream(), ff::stream_by_index()
/// - What does the picture at time t look like?  ff::FFDecoder, asked with ff::RequireVideoFrame
/// - What does the span [a, b) sound like?     ff::FFDecoder, asked with ff::RequireAudioFrame
/// - Only the newest request counts?           ff::FFDecoder::getVideoFrameAsync()
/// - Faster, slower, backwards, filtered?      ff::FFDecoder2
/// - One small picture of each file?           ff::getMovieImage()
/// - What do several sources sound like together?  ff::AudioMixer; for a meter ff::getAudioPeak()
/// - Mix or measure bare samples?              SDL_MixAudioFormat(), Audio_Volume_Peak()
/// - By how much should it be shrunk?          ff::FFDecoder::getImageDivider()
/// - Scale or lay out pictures of my own?      ff::swsNew(), ff::imageFillPointers()
/// - Decode on the graphics hardware?          ff::hw_enable_device(), before decoders are opened
/// - Compute with times?                       ff::Rational, ff::Range, ff::rescale_q()
/// - Where do messages go?                     mox::Logger; mox::Func_Tracer draws calls
/// - What does FFmpeg's error code mean?       ff::ffmpeg_error()
/// - How many pictures may be kept decoded?    mox::Data
/// - Settings as a text or as JSON?            mox::Value
/// - Keep sound on disk as bare samples?       ff::WaveFiles
/// - Text in GBK? An MD5 text?                 utils/charset.h, utils/digest.h
/// - Paths and files? A key for their state?   utils/files.h, utils/file_id.h, included by name
/// - Give idle memory back to the system?      ff::mem_collection()
///
/// Units. Requests carry seconds from the start of the movie, as exact fractions (ff::Rational).
/// Stream records count ticks of their stream's time base; ff::time_to_timestamp() and
/// ff::timestamp_to_time() lead from one to the other. Results and movie records carry
/// microseconds, and a result's time includes the start time of the file. A time that is unknown is
/// INT64_MIN. Sizes are bytes, sample counts are per channel. The picture at t is the last one
/// whose own time is not after t; the sound of [a, b) has the samples from a on, and the one at b
/// no more.
///
/// Ownership. Results come in shared pointers and stay valid for as long as somebody holds them,
/// also after the decoder is gone. Probe records are the library's and live as long as the process.
/// No pointer that a host hands in is kept after the call, except a decoder's stream record, what a
/// background request carries until it is over, and what a host installs by an instance() function
/// or as a callback.
///
/// Threads. Any thread may call anything, unless a class says otherwise. Decoding runs on the
/// calling thread, and FFmpeg's decoders bring threads of their own. The calls of one decoder run
/// one after another; so does the decoding of one stream. A request is cancelled from another
/// thread by its abort flag or by closing the decoder. Background requests run on a thread of their
/// decoder, which the first of them starts and close() ends; their callbacks run there, one after
/// another, and may do with the decoder what they like. The callback of the logger is another
/// matter: it runs on any thread and while the library holds locks, and calls nothing of it.
///
/// Failures. Nothing is thrown, except that memory may run out. A call that fails returns an empty
/// pointer, null, false or a negative FFmpeg code, and the reason is logged once; helpers whose
/// headers say so report by their result alone. Bad files and misuse (a null stream, a request
/// before open() or after close(), a format that does not exist) end the same way. A request that
/// is cancelled ends as one that fails.
///
/// What the library does to its process.
/// - It keeps for the life of the process: what it probed; idle buffers, which ff::mem_collection()
///   trims; an empty list for each stream that was open; the newest 16 decoders that
///   ff::getMovieImage() left open on files with several video streams, and the newest 16 scalers
///   that ff::swsDestroy() was given; a few bytes for each attempt to set filters on a decoder that
///   has never had a stream.
/// - It writes lines to standard error: errors through mox::Logger, where a host can take them
///   over; and past the logger those that tell which filters ff::FFDecoder2 opens and closes, that
///   the memory pool was given a buffer that is not its own, that samples of an unknown format
///   cannot be mixed, and why a text is no mox::Value. FFmpeg writes there as av_log() is set up. A
///   conversion of utils/charset.h that fails says so on standard output.
/// - Conversions between GBK and UTF-8, reading a mox::Value and fs::file_unique_id() give their
///   own thread another locale until they return. The locale of the process and of other threads
///   stays.
/// - ut::rand_str() seeds rand(), and fs::tmp_dir() reads TMPDIR. Nothing else reads the
///   environment or a configuration file (the C library reads TZ where the log tells the time).
/// - Some choices are the process's, not an object's: the logger, the tracer, the settings, the
///   device of hardware decoding, and the export size of ff::setExportMVSize().
/// - It installs no signal handler and leaves FFmpeg's global settings as they are. But for
///   mox::g_statics nothing of it is torn down at exit, so static objects of the host may hold
///   decoders and results.
///
/// Names. Everything stands in the namespaces ff, mox (logging, values, locks), bg (memory, clock)
/// and ut (text, digests), but for the routines of media/sample_mix.h, which are global. The
/// functions for files stand in a namespace fs; this header leaves out theirs, utils/files.h and
/// utils/file_id.h, so that `namespace fs = std::filesystem` keeps compiling in hosts.

#include <framewell/audio_mixer.h>
#include <framewell/base/blocking_queue.h>
#include <framewell/base/config.h>
#include <framewell/base/data.h>
#include <framewell/base/logger.h>
#include <framewell/base/read_write_mutex.h>
#include <framewell/base/statics.h>
#include <framewell/base/tracer.h>
#include <framewell/base/value.h>
#include <framewell/ff_tools.h>
#include <framewell/ffdecoder.h>
#include <framewell/ffdecoder2.h>
#include <framewell/frame.h>
#include <framewell/hw/hw_decoder.h>
#include <framewell/media/ffmpeg_error.h>
#include <framewell/media/formats.h>
#include <framewell/media/range.h>
#include <framewell/media/rational.h>
#include <framewell/media/sample_mix.h>
#include <framewell/media/stream.h>
#include <framewell/movie_info.h>
#include <framewell/utils/charset.h>
#include <framewell/utils/clock.h>
#include <framewell/utils/digest.h>
#include <framewell/utils/mempool.h>
#include <framewell/utils/text.h>
#include <framewell/utils/wave_files.h>
