#include "verify/FfmpegDecode.h"

#include <fmt/format.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/avutil.h>
#include <libavutil/mem.h>
}

#include <algorithm>
#include <mutex>
#include <string_view>

namespace sondrel::verify {

namespace {

// FFmpeg reads through the project's file access, never by path.
struct Source {
    FileHandle& file;
    uint64_t size, pos = 0;
};

int readPacket(void* opaque, uint8_t* out, int n) {
    auto& s = *static_cast<Source*>(opaque);
    const size_t count = size_t(std::min<uint64_t>(uint64_t(std::max(n, 0)), s.size - s.pos));
    if (count == 0) return AVERROR_EOF;
    if (!s.file.readInto(s.pos, out, count)) return AVERROR(EIO);
    s.pos += count;
    return int(count);
}

int64_t seekTo(void* opaque, int64_t offset, int whence) {
    auto& s = *static_cast<Source*>(opaque);
    whence &= ~AVSEEK_FORCE;
    if (whence == AVSEEK_SIZE) return int64_t(s.size);
    const uint64_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? s.pos : s.size;
    if (offset < 0 ? 0 - uint64_t(offset) > base : uint64_t(offset) > s.size - base) return AVERROR(EINVAL);
    s.pos = base + uint64_t(offset);
    return int64_t(s.pos);
}

std::string errorText(int code) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return text;
}

// FFmpeg's own messages would go to standard error; one allocation may not
// exceed 32 MiB, so a damaged table cannot make a worker's memory balloon.
void setUpOnce() {
    static std::once_flag once;
    std::call_once(once, [] {
        av_log_set_level(AV_LOG_QUIET);
        av_max_alloc(size_t(32) << 20);
    });
}

constexpr size_t kIoBuffer = 64 * 1024;
// A decoder that rejects every packet of a ruined file stops being fed.
constexpr uint64_t kMaxErrors = 10000;

struct Contexts {
    AVIOContext* io = nullptr;
    AVFormatContext* format = nullptr;
    AVCodecContext* codec = nullptr;
    AVPacket* packet = nullptr;
    AVFrame* frame = nullptr;
    ~Contexts() {
        av_frame_free(&frame);
        av_packet_free(&packet);
        avcodec_free_context(&codec);
        avformat_close_input(&format);
        if (io) av_freep(&io->buffer);
        avio_context_free(&io);
    }
};

}  // namespace

void decodeWithFfmpeg(FileHandle& file, uint64_t size, const char* demuxer, const DecodeMessages& messages,
                      Findings& findings) {
    setUpOnce();
    Source source{file, size};
    Contexts c;
    auto* buffer = static_cast<uint8_t*>(av_malloc(kIoBuffer));
    if (!buffer) return;
    c.io = avio_alloc_context(buffer, int(kIoBuffer), 0, &source, &readPacket, nullptr, &seekTo);
    if (!c.io) return av_free(buffer);
    c.format = avformat_alloc_context();
    if (!c.format) return;
    c.format->pb = c.io;
    c.format->flags |= AVFMT_FLAG_CUSTOM_IO;
    if (int r = avformat_open_input(&c.format, "", av_find_input_format(demuxer), nullptr); r < 0) {
        c.format = nullptr;  // freed by the failed open
        return findings.add(0, fmt::format(fmt::runtime(messages.cannotDecode), errorText(r)));
    }
    const AVCodec* codec = nullptr;
    const int index = av_find_best_stream(c.format, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
    if (index < 0) {
        // No audio track is the format checker's finding; an unknown codec is ours.
        if (index == AVERROR_DECODER_NOT_FOUND)
            findings.add(0, fmt::format(fmt::runtime(messages.cannotDecode), errorText(index)));
        return;
    }
    AVStream* stream = c.format->streams[index];
    // A track with samples but no index: FFmpeg could not build it within
    // the allocation cap (a table of millions of samples). Its sample table
    // is the quick tier's finding, if any.
    if (avformat_index_get_entries_count(stream) == 0 && std::string_view(demuxer) == "mov") return;
    c.codec = avcodec_alloc_context3(codec);
    c.packet = av_packet_alloc();
    c.frame = av_frame_alloc();
    if (!c.codec || !c.packet || !c.frame) return;
    c.codec->thread_count = 1;  // files are verified in parallel already
    int r = avcodec_parameters_to_context(c.codec, stream->codecpar);
    if (r >= 0) r = avcodec_open2(c.codec, codec, nullptr);
    if (r < 0) return findings.add(0, fmt::format(fmt::runtime(messages.cannotDecode), errorText(r)));

    uint32_t rate = uint32_t(std::max(stream->codecpar->sample_rate, 1));
    uint64_t decoded = 0, errors = 0;
    int64_t longestFrame = 0;
    // The time of the packet at hand, or of the audio decoded so far.
    int64_t packetTime = -1;
    auto fail = [&](uint64_t at, int code) {
        const uint64_t time = packetTime >= 0 ? uint64_t(packetTime) : decoded;
        findings.add(at, fmt::format(fmt::runtime(messages.decodeError), formatTime(time, rate),
                                     code ? errorText(code) : std::string("damaged frame")));
        return ++errors < kMaxErrors;
    };
    // Takes every frame the decoder has ready; false when decoding must stop.
    auto drain = [&](uint64_t at) {
        for (;;) {
            const int got = avcodec_receive_frame(c.codec, c.frame);
            if (got == AVERROR(EAGAIN) || got == AVERROR_EOF) return true;
            if (got < 0) return fail(at, got);
            // The decoder knows the rate better than the container (an
            // MPEG-4 sample entry cannot hold rates above 65535 Hz).
            if (c.frame->sample_rate > 0) rate = uint32_t(c.frame->sample_rate);
            decoded += uint64_t(std::max(c.frame->nb_samples, 0));
            longestFrame = std::max<int64_t>(longestFrame, c.frame->nb_samples);
            const bool corrupt = c.frame->decode_error_flags || (c.frame->flags & AV_FRAME_FLAG_CORRUPT);
            av_frame_unref(c.frame);
            if (corrupt && !fail(at, 0)) return false;
        }
    };
    bool going = true;
    while (going) {
        r = av_read_frame(c.format, c.packet);
        if (r < 0) break;
        if (c.packet->stream_index == index) {
            const uint64_t at = c.packet->pos >= 0 ? uint64_t(c.packet->pos) : source.pos;
            packetTime = c.packet->pts == AV_NOPTS_VALUE
                             ? -1
                             : av_rescale_q(c.packet->pts, stream->time_base, AVRational{1, int(rate)});
            const int sent = avcodec_send_packet(c.codec, c.packet);
            if (sent < 0 && sent != AVERROR(EAGAIN)) going = fail(at, sent);
            if (going) going = drain(at);
        }
        av_packet_unref(c.packet);
    }
    if (!going) return;
    if (r != AVERROR_EOF)
        findings.add(source.pos,
                     fmt::format(fmt::runtime(messages.readError), formatTime(decoded, rate), errorText(r)));
    packetTime = -1;
    if (avcodec_send_packet(c.codec, nullptr) >= 0) drain(source.pos);

    // Encoders pad the last frame and the container trims it, so up to one
    // frame of difference is the format's own, not a loss.
    if (errors || r != AVERROR_EOF || stream->duration == AV_NOPTS_VALUE || stream->duration <= 0) return;
    const int64_t declared = av_rescale_q(stream->duration, stream->time_base, AVRational{1, int(rate)});
    const int64_t difference =
        declared > int64_t(decoded) ? declared - int64_t(decoded) : int64_t(decoded) - declared;
    if (difference > longestFrame)
        findings.add(source.pos, fmt::format(fmt::runtime(messages.decodedLength), formatTime(decoded, rate),
                                             formatTime(uint64_t(declared), rate)));
}

std::string ffmpegVersions() {
    const auto version = [](unsigned v) {
        return fmt::format("{}.{}.{}", v >> 16, (v >> 8) & 0xFF, v & 0xFF);
    };
    return fmt::format("FFmpeg {} (libavformat {}, libavcodec {}, libavutil {})", av_version_info(),
                       version(avformat_version()), version(avcodec_version()), version(avutil_version()));
}

}  // namespace sondrel::verify
