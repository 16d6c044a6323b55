#pragma once
// Every message of the audio verification, in one place. "{}" fields are
// filled with fmt: times as "hh:mm:ss.mmm", counts and offsets in decimal.
namespace sondrel::verify::msg {

// Common
constexpr const char* kMoreFindings = "{} more audio problems in this file are not listed";
constexpr const char* kReadFailed = "The audio could not be read to the end of the file";
constexpr const char* kNotDecoded = "Audio not decoded: {} exceed the decoding memory budget";

// FLAC, read without decoding
constexpr const char* kFlacNoStreamInfo = "FLAC audio cannot be verified without a valid STREAMINFO block";
constexpr const char* kFlacNoFirstFrame =
    "FLAC audio does not start with a valid frame header; {} bytes skipped";
constexpr const char* kFlacFrameCrc = "FLAC frame CRC mismatch at {}";
constexpr const char* kFlacLastFrame =
    "FLAC last frame at {} is cut short or followed by data that is not audio";
constexpr const char* kFlacLostSync = "FLAC lost sync at {}: the audio up to {} is missing";
constexpr const char* kFlacOutOfOrder = "FLAC frame at {} is out of sequence";
constexpr const char* kFlacTotalSamples = "FLAC frames hold {} of audio, STREAMINFO declares {}";
constexpr const char* kFlacNoFrames = "FLAC file holds no audio frames, STREAMINFO declares {}";
// FLAC, decoded
constexpr const char* kFlacDecodeError = "FLAC decoder error at {}: {}";
constexpr const char* kFlacMd5Mismatch = "FLAC decoded audio does not match the MD5 signature in STREAMINFO";
constexpr const char* kFlacMd5Unset = "FLAC STREAMINFO holds no MD5 signature of the audio";
constexpr const char* kFlacDecodedLength = "FLAC decoded audio lasts {}, STREAMINFO declares {}";

// WavPack, read without decoding
constexpr const char* kWvNoBlock = "WavPack file holds no audio block";
constexpr const char* kWvChecksum = "WavPack block checksum mismatch at {}";
constexpr const char* kWvCutShort = "WavPack block at {} is cut short by the end of the file";
constexpr const char* kWvLostSync = "WavPack lost sync after {}: {} bytes are not audio blocks";
constexpr const char* kWvOutOfOrder = "WavPack block at {} is out of sequence (expected {})";
constexpr const char* kWvTrailing = "{} bytes after the last WavPack block are not audio";
// WavPack, decoded
constexpr const char* kWvCannotDecode = "WavPack decoder cannot open the file: {}";
constexpr const char* kWvDecodeCrc = "WavPack decoded audio fails its checksum at {}";
constexpr const char* kWvDecodedLength = "WavPack decoded audio lasts {}, the header declares {}";
constexpr const char* kWvTotalSamples = "WavPack blocks hold {} of audio, the header declares {}";
constexpr const char* kWvMd5Mismatch = "WavPack decoded audio does not match its stored MD5 signature";

// MPEG audio, read without decoding
constexpr const char* kMpegNoFrames = "MPEG audio holds no frames";
constexpr const char* kMpegLostSync = "MPEG audio lost sync at {}: {} bytes are not audio frames";
constexpr const char* kMpegCutShort = "MPEG audio frame at {} is cut short by the end of the file";
constexpr const char* kMpegTrailing = "{} bytes after the last MPEG audio frame are not audio";
constexpr const char* kMpegFrameCount = "MPEG audio holds {} frames, the {} header declares {}";
constexpr const char* kMpegByteCount = "MPEG audio holds {} bytes, the {} header declares {}";
constexpr const char* kLameTagCrc = "LAME tag CRC mismatch: the header frame is damaged";
// MPEG audio, decoded
constexpr const char* kMpegDecodeError = "MPEG audio decoder error at {}: {}";
constexpr const char* kMpegDecoderSkipped = "MPEG audio decoder lost sync at {}: {} bytes skipped";
constexpr const char* kMpegDecoderStopped = "MPEG audio decoder stopped at {}: {} bytes were not decoded";
constexpr const char* kLameMusicCrc = "LAME tag audio CRC mismatch: the audio frames are damaged";

// Ogg, read without decoding
constexpr const char* kOggNoPage = "Ogg file holds no page";
constexpr const char* kOggLostSync = "Ogg lost sync after {}: {} bytes are not Ogg pages";
constexpr const char* kOggPageCrc = "Ogg page CRC mismatch after {}";
constexpr const char* kOggCutShort = "Ogg page after {} is cut short by the end of the file";
constexpr const char* kOggSequence = "Ogg page sequence jumps after {}: {} pages are missing";
constexpr const char* kOggGranule = "Ogg granule position goes back after {}";
constexpr const char* kOggTrailing = "{} bytes after the last Ogg page are not audio";
constexpr const char* kOggNoEnd = "Ogg stream ends at {} without its end-of-stream page";
// Ogg Vorbis and Opus, decoded ("Vorbis" or "Opus" fills the first field)
constexpr const char* kOggCannotDecode = "Ogg {} decoder cannot open the file: {}";
constexpr const char* kOggHole = "Ogg {} audio has a hole at {}: packets are missing or damaged";
constexpr const char* kOggBadLink = "Ogg {} stream link at {} is damaged and cannot be decoded";
constexpr const char* kOggDecodeError = "Ogg {} decoder error at {}: {}";
constexpr const char* kOggDecodedLength = "Ogg {} decoded audio lasts {}, the last granule position gives {}";

// WAV and AIFF sound data, measured without reading the samples
constexpr const char* kWavPartialFrame =
    "WAV audio data of {} bytes is not a whole number of {}-byte sample frames";
constexpr const char* kWavSampleCount = "WAV audio data holds {} sample frames, the header declares {}";
constexpr const char* kWavNoData = "WAV file holds no data chunk: its audio is missing";
constexpr const char* kAiffPartialFrame =
    "AIFF audio data of {} bytes is not a whole number of {}-byte sample frames";
constexpr const char* kAiffSampleCount = "AIFF audio data holds {} sample frames, the COMM chunk declares {}";

constexpr const char* kDsfPartialBlock =
    "DSF audio data of {} bytes is not a whole number of {}-byte groups of channel blocks";
constexpr const char* kDsfBlockCount =
    "DSF audio data holds {} blocks per channel, the sample count needs {}";

// DFF sound data
constexpr const char* kDffPartialFrame =
    "DFF sound data of {} bytes is not a whole number of {}-byte sample frames";
constexpr const char* kDffCutShort = "DFF sound data holds {} bytes, its chunk declares {}";
constexpr const char* kDffDstFrames = "DFF holds {} DST frames, the frame information declares {}";

// Monkey's Audio, read without decoding
constexpr const char* kApeCutShort =
    "Monkey's Audio file holds {} bytes of audio data, the header declares {}";
constexpr const char* kApeTrailing = "{} bytes after the Monkey's Audio data are not audio";
constexpr const char* kApeSeekTable = "Monkey's Audio seek table holds {} frames, the header declares {}";
constexpr const char* kApeFrameOutside = "Monkey's Audio frame {} at {} lies outside the audio data";
constexpr const char* kApeFrameOrder = "Monkey's Audio frame {} starts before the frame ahead of it";

// MPEG-4 and Monkey's Audio, decoded
constexpr const char* kMp4CannotDecode = "MPEG-4 audio decoder cannot open the file: {}";
constexpr const char* kMp4DecodeError = "MPEG-4 audio decoder error at {}: {}";
constexpr const char* kMp4ReadError = "MPEG-4 audio could not be read past {}: {}";
constexpr const char* kMp4DecodedLength = "MPEG-4 decoded audio lasts {}, the track declares {}";
constexpr const char* kApeCannotDecode = "Monkey's Audio decoder cannot open the file: {}";
constexpr const char* kApeDecodeError = "Monkey's Audio decoder error at {}: {}";
constexpr const char* kApeReadError = "Monkey's Audio could not be read past {}: {}";
constexpr const char* kApeDecodedLength = "Monkey's Audio decoded audio lasts {}, the header declares {}";

// MPEG-4 sample tables
constexpr const char* kMp4ChunkOutsideFile =
    "MPEG-4 track {} chunk {} ({} bytes) lies beyond the end of the file";
constexpr const char* kMp4ChunkOutsideMdat =
    "MPEG-4 track {} chunk {} ({} bytes) lies outside the media data";
constexpr const char* kMp4SampleCount =
    "MPEG-4 track {}: its chunks hold {} samples, the sample size table lists {}";
constexpr const char* kMp4BadTable = "MPEG-4 track {}: the sample table is damaged";

}  // namespace sondrel::verify::msg
