// The table of problem codes. Severities follow what a message means for the
// file, not the category word printed in the log:
//   damage   the file or its container is broken; audio or metadata may be
//            lost or unreadable by players;
//   error    metadata that breaks its format's rules, which readers may
//            misread or drop;
//   warning  legal but questionable, or against a recommendation;
//   note     information the user asked for.
// A row may carry several patterns when the messages are of one kind. The
// order matters only where two patterns could match the same message: the
// first row wins.
#include "codes/ProblemCodes.h"

#include <algorithm>
#include <array>

namespace sondrel::codes {

namespace {

constexpr Severity D = Severity::Damage;
constexpr Severity E = Severity::Error;
constexpr Severity W = Severity::Warning;
constexpr Severity N = Severity::Note;

const ProblemCode kTable[] = {
    {"unclassified", E, "", "A problem whose message has no code in this version's table.",
     "Report it with the log line; it is treated as an error."},

    // --- file access and the record
    {"file.not-regular", E,
     "The item is a folder, not a file\nThe item is a FIFO (named pipe), not a regular file\n"
     "The item is a socket, not a regular file\nThe item is a device, not a regular file\n"
     "The item is not a regular file",
     "The path names something that is not an ordinary file, so it cannot be checked.",
     "Rename it so that it has no audio extension, or remove it from the collection."},
    {"file.cannot-open", E,
     "Unknown error opening file\nPermission denied\nNo such file or directory\nInput/output error\n"
     "Too many open files\nOperation not permitted\nFile too large\nStale file handle",
     "The file could not be opened for reading (the message is the system's reason).",
     "Check the file's permissions and the disk; run the check again."},
    {"file.cannot-stat", E, "Cannot query file info",
     "The file's size or modification date could not be read from the file system.",
     "Check the disk and the file's permissions."},
    {"file.read-error", D, "Read error\nRead error (packet data)\nSeek error",
     "Bytes the structure promises could not be read: the file is shorter than its own "
     "structure says, or the disk failed. Usually an interrupted copy or download.",
     "Replace the file from a good copy or re-rip it."},
    {"file.close-error", E, "Error closing the file",
     "The file could not be closed cleanly after reading; a disk or network file system problem.",
     "Check the disk or the network share."},
    {"file.unsupported-type", E,
     "File must be aif, aifc, aiff, ape, dff, dsf, flac, mp3, m4a, m4b, m4v, mp4, oga, ogg, opus, wav or wv",
     "The file's extension names no format that can be checked.", "Give the file its proper extension."},
    {"file.out-of-memory", E, "The check of this file ran out of memory and stopped",
     "The check needed more memory than the machine could give; the rest of the file was not checked.",
     "Check the file again with fewer jobs or more memory; a file that always does this is likely crafted."},
    {"file.internal-error", E, "The check of this file stopped on an internal error",
     "The checker stopped on an unexpected condition; the rest of the file was not checked.",
     "Report the file; the other files of the scan are not affected."},

    {"file.check-budget", D,
     "Too many *: the check stopped after *\n"
     "ID3 tag of * bytes is larger than the * bytes this check reads; it was not checked\n"
     "Problem list stopped after * lines: * more problems in this file were not logged\n"
     "Metadata items of this file exceed * bytes; later items were not checked\n"
     "'*' (*) has more than * entries; later ones were not checked\n"
     "Atom walk stopped after * atoms: more than any real file holds; later atoms were not checked\n"
     "Ogg * packet is larger than * bytes; it was not checked\n"
     "'*' atom '*' holds * bytes, more than the * read for one value; it was not checked",
     "The file holds far more structures (chunks, frames, items, blocks) than any real writer "
     "produces, so the check stopped there; the rest of the file was not checked. Damaged or "
     "deliberately crafted files cause it.",
     "Replace the file from a good copy."},

    // --- privacy (asked for)
    {"privacy.owner", N, "Owner information is embedded",
     "The file names its buyer or owner (an account name or address), typically put there by an "
     "online store.",
     "Remove the owner item with a tag editor before sharing the file."},
    {"privacy.identification", N, "Identification information is embedded",
     "The file carries identifiers that trace it to a purchase or an account (store or user IDs).",
     "Remove the identification items with a tag editor before sharing the file."},

    // --- item values (all formats)
    {"item.duplicate", W, "'*' (*) found * times",
     "A single-valued item is stored more than once; readers show only one of them, which one "
     "varies. Taggers that append rather than replace cause it.",
     "Keep one value and delete the others with a tag editor."},
    {"item.newline", W,
     "'*' (*) value contains newline characters\n'*' (*) [*] value contains newline characters",
     "A one-line item (title, artist...) contains line breaks; many players show them as garbage. "
     "Usually pasted text.",
     "Edit the value onto one line."},
    {"item.control-characters", E,
     "'*' (*) value contains control characters\n'*' (*) [*] value contains control characters",
     "A value contains invisible control characters; readers may cut the value there or show "
     "garbage. Caused by buggy conversions and old taggers.",
     "Retype the value with a tag editor."},
    {"item.multiple-values", W, "'*' (*) contains multiple values\n'*' (*) [*] contains multiple values",
     "A single-valued item holds several values joined together; readers expecting one value show "
     "them run together. Taggers that merge duplicates cause it.",
     "Keep the one value that is right."},
    {"item.time-stamp", W,
     "'*' (*) Time stamp is not a valid subset of ISO 8601\n'*' (*) [*] Time stamp is not a valid subset of "
     "ISO 8601",
     "A date or time is not written as yyyy, yyyy-MM, yyyy-MM-dd or yyyy-MM-ddTHH:mm[:ss]; "
     "readers may not sort or show it. Free-form dates typed into taggers cause it.",
     "Rewrite the date in ISO 8601 form (for example 2021-03-14)."},
    {"item.language", W,
     "'*' (*) invalid language code. Not ISO-639-2\n'*' (*) [*] invalid language code. Not ISO-639-2\n"
     "'*' (*) Invalid language field\n'*' (*) [*] Invalid language field",
     "A language field is not a three-letter ISO 639-2 code (\"XXX\", blanks or nils are common); "
     "readers ignore it.",
     "Set the language to a code such as eng, or to und when unknown."},
    {"item.invalid-url", W, "'*' (*) invalid URL\n'*' (*) [*] invalid URL",
     "A link item does not hold a well-formed URL; readers cannot open it.", "Correct or remove the link."},
    {"item.same-description", W,
     "'*' (*) has more than one item with the same description\n"
     "'*' (*) [*] has more than one item with the same description",
     "Two items of a list kind (comments, user texts) share a description and language; readers "
     "keep only one.",
     "Merge them or give each its own description."},

    // --- artwork (all formats)
    {"art.not-checked", W,
     "Artwork not checked: * pixels exceed the decoding budget\n"
     "Artwork not checked: the file's artwork decoding budget is spent",
     "A picture is larger than the decoding budget allows (or the file's pictures together are), so it "
     "was not decoded; it is not known to be broken. Real covers are far below the budget.",
     "If the picture is real, make it smaller (3000x3000 is plenty for a cover)."},
    {"art.decoders-missing", W, "Artwork not checked: the image decoders could not be loaded",
     "The program's image decoders module is missing or damaged, so the pictures were not decoded; "
     "they are not known to be broken.",
     "Reinstall the program; the standard error output names the missing file and the reason."},
    {"art.not-an-image", E, "*Artwork data cannot be represented as an image",
     "The embedded picture does not decode; players show no cover. Truncated downloads or "
     "broken converters cause it.",
     "Embed the picture again from a good image file."},
    {"art.mime-mismatch", E,
     "*Artwork mime type is image/jpeg but the data does not represent a jpeg image\n"
     "*Artwork mime type is image/png but the data does not represent a png image",
     "The picture's declared type disagrees with its data; strict readers refuse it.",
     "Embed the picture again so that the tagger sets its type from the data."},

    // --- ID3v2 tag structure
    {"id3.invalid-version", E, "Invalid ID3 version 2.*.*\nInvalid ID3 version 2.* footer tag",
     "The tag header names an ID3 version that does not exist; readers skip the whole tag.",
     "Rewrite the tag with a current tagger (ID3v2.3 or v2.4)."},
    {"id3.version-2.1", E, "Non standard ID3 version 2.1",
     "ID3v2.1 was never a published version; readers skip the tag.", "Rewrite the tag as ID3v2.3 or v2.4."},
    {"id3.footer-flag", E, "Required ID3 footer flag not set in version 2.4",
     "An ID3v2.4 footer exists but the header does not announce it; readers may miss the tag.",
     "Rewrite the tag with a current tagger."},
    {"id3.v22-compression", E, "Compression not supported in ID3 version 2.2",
     "The ID3v2.2 compression flag is set, which has no defined scheme; readers skip the tag.",
     "Rewrite the tag as ID3v2.3 or v2.4."},
    {"id3.header-flags", E, "Invalid flag bits in ID3 header",
     "Undefined flag bits are set in the tag header; strict readers refuse the tag.",
     "Rewrite the tag with a current tagger."},
    {"id3.experimental", W, "Experimental bit is set in the tag header",
     "The tag calls itself experimental; some readers skip such tags.",
     "Rewrite the tag with a current tagger."},
    {"id3.size-zero", E, "Invalid ID3 tag size of 0",
     "An ID3 header announces an empty tag, which the format does not allow.",
     "Remove the empty tag or write a real one."},
    {"id3.footer-size", D, "Invalid size for ID3 footer tag",
     "The footer's size does not describe a tag that fits before it; the tag cannot be found from "
     "the end.",
     "Rewrite the tag."},
    {"id3.tag-overflow", D, "ID3 tag overflows the file\nThe ID3 tag overflows into the audio stream",
     "The tag's size reaches past the end of the file or into the audio: the file is truncated or "
     "the tag size was written wrongly; audio or tag data is lost.",
     "Replace the file from a good copy, or strip and rewrite the tag."},
    {"id3.extended-header", D, "Invalid extended header size",
     "The extended header's size is impossible; the frames after it cannot be found.",
     "Rewrite the tag without an extended header."},
    {"id3.frame-walk", D,
     "Frame overrun\nInvalid frame size\nInvalid frame\nInvalid frame. Previous frame at *",
     "The frames of the tag cannot be walked to the end: a frame size runs past the tag or bytes "
     "that are no frame follow. Frames after it are lost to readers. Old taggers that wrote "
     "ID3v2.4 sizes as plain integers, or padding filled with garbage, cause it.",
     "Rewrite the tag with a current tagger."},
    {"id3.multiple-tags", W, "Has multiple ID3v2.x tags",
     "The file starts with more than one ID3v2 tag; most readers see only the first. Taggers that "
     "prepend a new tag without removing the old one cause it.",
     "Strip all tags and write one."},
    {"id3.overlapping-tags", D, "Overlapping multiple tags",
     "Tags at the end of the file overlap each other; at least one is damaged.",
     "Strip the tags at the end of the file and write them again."},
    {"id3.footer-tag", N, "The ID3 tag is a footer tag",
     "The ID3v2 tag sits at the end of the file behind a footer; many readers only look at the start.",
     "Move the tag to the start by rewriting it."},
    {"id3.v1-present", N, "ID3 v1.0 tag present",
     "The file ends with an ID3v1 tag (reported because it was asked for).",
     "Nothing to fix; remove it if only ID3v2 is wanted."},
    {"id3.ape-present", N, "APE tag present",
     "The MP3 file carries an APE tag (reported because it was asked for); few players read it.",
     "Nothing to fix; remove it if it is not wanted."},

    // --- ID3v2 frames: "ID3 'XXXX' frame: ..."
    {"id3.trailing-nil", W, "ID3 '*' frame: text string contains redundant trailing nil(s)",
     "A text value ends with a nil character. ID3v2.3 allows it and readers ignore it; ffmpeg and "
     "mutagen write it routinely.",
     "Nothing to fix; rewriting the tag with a tagger that does not add the nil removes the line."},
    {"id3.redundant-nil", W, "ID3 '*' frame: text string contains redundant nil(s)",
     "A text value contains empty entries (nils in a row); readers show an empty value among the "
     "real ones.",
     "Rewrite the value with a tag editor."},
    {"id3.dropped-frame", W, "ID3 '*' frame: Dropped ID3 v2.2 frame\nID3 '*' frame: Dropped ID3 v2.3 frame",
     "A frame of an obsolete kind (ID3v2.2 names without a successor, ID3v2.3 date parts such as "
     "TDAT, TIME, TRDA) is not carried into the checked items. Legal in its version; mutagen and "
     "ffmpeg write ID3v2.3 date parts.",
     "Nothing to fix; converting the tag to ID3v2.4 merges the date parts."},
    {"id3.invalid-frame-id", E, "ID3 '*' frame: Invalid ID3 frame type",
     "A frame name contains characters other than A-Z and 0-9; readers drop the frame.",
     "Rewrite the tag with a current tagger."},
    {"id3.frame-truncated", D, "ID3 '*' frame: Insufficient data for ID3 frame",
     "A frame is shorter than its own header requires; its contents are lost.", "Rewrite the tag."},
    {"id3.frame-malformed", E, "ID3 '*' frame: Malformed ID3 frame",
     "A frame's contents do not follow its kind's layout; readers drop or misread it.",
     "Rewrite the frame with a tag editor."},
    {"id3.compressed-frame", W, "ID3 '*' frame: frame is compressed or encrypted",
     "The frame is compressed or encrypted, which is legal but rare; its contents were not checked "
     "and many players cannot read it.",
     "Rewrite the tag without compression."},
    {"id3.text-unterminated", E,
     "ID3 '*' frame: text string not properly terminated\nID3 '*' frame: Malformed text string",
     "A text value lacks its terminator or has an odd number of UTF-16 bytes; readers may show "
     "garbage at its end.",
     "Retype the value with a tag editor."},
    {"id3.text-overflow", E, "ID3 '*' frame: text string overflows frame",
     "A text value runs past the end of its frame; readers cut it or drop the frame.",
     "Retype the value with a tag editor."},
    {"id3.frame-overflow", E,
     "ID3 '*' frame: insufficient data for frame\nID3 '*' frame: frame overflows\n"
     "ID3 '*' frame: artwork frame overflows\nID3 '*' frame: artwork overflows frame",
     "A frame's fields run past the frame's end; readers drop the frame.", "Rewrite the frame."},
    {"id3.missing-field", E,
     "ID3 '*' frame: missing description field\nID3 '*' frame: missing Description field\n"
     "ID3 '*' frame: missing mime type field\nID3 '*' frame: missing filename field\n"
     "ID3 '*' frame: missing price field\nID3 '*' frame: artwork missing description field\n"
     "ID3 '*' frame: cannot extract mime type in artwork",
     "A field the frame's layout requires is absent; readers drop the frame.", "Rewrite the frame."},
    {"id3.art-external", W, "ID3 '*' frame: artwork contains external --> reference",
     "The picture frame holds a link to an image instead of the image; legal but few players follow it.",
     "Embed the image itself."},
    {"id3.art-picture-type", E, "ID3 '*' frame: artwork contains an invalid picture code",
     "The picture type is not one of the 21 defined kinds; readers may ignore the picture.",
     "Set the picture type (front cover is usual) with a tag editor."},
    {"id3.art-mime-jpg", W, "ID3 '*' frame: artwork mime type entered as image/jpg (should be image/jpeg)",
     "The picture's type is written image/jpg, which is not a registered type; most readers accept it.",
     "Embed the picture again with a tagger that writes image/jpeg."},
    {"id3.art-mime-mismatch", E,
     "ID3 '*' frame: artwork mime type incorrect for jpeg data\nID3 '*' frame: artwork mime type incorrect "
     "for png data",
     "The picture's declared type disagrees with its data; strict readers refuse the picture.",
     "Embed the picture again."},
    {"id3.art-format", W, "ID3 '*' frame: artwork not jpeg or png",
     "The picture is neither JPEG nor PNG; the format allows it but many players show only those two.",
     "Convert the picture to JPEG or PNG and embed it again."},
    {"id3.purchase-date", E,
     "ID3 '*' frame: empty purchase date field\nID3 '*' frame: invalid purchase date field\n"
     "ID3 '*' frame: invalid seller field",
     "A commercial or ownership frame has a blank or badly formed date or seller.",
     "Correct or remove the frame."},

    // --- MPEG audio files
    {"mp3.file-size", D, "Invalid file size", "The file is too small to hold MPEG audio.",
     "Replace the file from a good copy."},
    {"mp3.garbage-before-audio", E, "* bytes of garbage data before the actual start of the audio stream",
     "Bytes that are neither tag nor audio sit before the first audio frame; players must search "
     "past them and some show a wrong duration or a click. Wrong tag sizes or leftovers of removed "
     "tags cause it.",
     "Strip the tags and write them again, or cut the stray bytes with an MP3 repair tool."},
    {"mp3.no-audio", D, "No audio data located", "No MPEG audio frame was found; the file does not play.",
     "Replace the file from a good copy."},

    // --- APE tags and Monkey's Audio
    {"ape.file-size", D, "Invalid file size for APE file",
     "The file is too small to be a Monkey's Audio file.", "Replace the file from a good copy."},
    {"ape.id3v2", W, "File contains an ID3v2 tag\nError extracting ID3v2 tag",
     "A Monkey's Audio file starts with an ID3v2 tag, which the format does not provide for; some "
     "players refuse the file. Taggers that treat every file as MP3 cause it.",
     "Strip the ID3v2 tag; use APE tags for this format."},
    {"ape.id3v1", N, "Contains an ID3V1 tag",
     "The file ends with an ID3v1 tag; tolerated but not this format's own tag.",
     "Nothing to fix; remove it if only APE tags are wanted."},
    {"ape.missing-header", D,
     "Missing 'MAC ' header\nCannot extract file properties\nCannot determine audio properties",
     "The Monkey's Audio header or its audio description is missing or unreadable; the file does "
     "not play.",
     "Replace the file from a good copy or encode it again."},
    {"ape.item-overflow", D, "Tag Item overflows\nTag Item key name not terminated",
     "An APE tag item runs past the end of the tag; it and the items after it are lost.",
     "Rewrite the APE tag."},
    {"ape.item-key", E, "Tag Item key is empty\nTag Item key is invalid",
     "An APE item's key is empty or has characters the format forbids; readers drop the item.",
     "Rewrite the item with a tag editor."},
    {"ape.item-value", E, "Cannot decode tag item value\nArtwork item is missing data prefix",
     "An APE item's value is not valid UTF-8, or a picture item lacks its file-name prefix.",
     "Rewrite the item with a tag editor."},

    // --- WavPack
    {"wv.missing-header", D, "Missing 'wvpk' header\nInvalid codec version\nCannot locate audio information",
     "A WavPack block header is missing or unusable; the audio cannot be decoded from there on.",
     "Replace the file from a good copy or encode it again."},
    {"wv.unknown-rate", E, "The sample rate is unknown",
     "The stream declares no known sample rate; players may play it at the wrong speed.",
     "Encode the file again from its source."},
    {"wv.damaged-stream", D, "The audio stream appears to be damaged",
     "The chain of WavPack blocks is broken; part of the audio is lost.",
     "Replace the file from a good copy."},

    // --- FLAC
    {"flac.file-size", D, "Invalid file size for FLAC file", "The file is too small to be FLAC.",
     "Replace the file from a good copy."},
    {"flac.id3", E, "File contains an ID3 tag",
     "A FLAC file starts with an ID3 tag; FLAC has no place for it and several players refuse "
     "the file. Taggers that treat every file as MP3 cause it.",
     "Strip the ID3 tag (metaflac or a FLAC-aware tagger keeps the Vorbis comments)."},
    {"flac.header", D,
     "Invalid FLAC header\nMissing StreamInfo metadatablock\nInvalid STREAMINFO - insufficient data",
     "The FLAC marker or the stream description is missing; the file does not play.",
     "Replace the file from a good copy or encode it again."},
    {"flac.sample-rate", D, "STREAMINFO frame sample rate is 0",
     "The stream description gives no sample rate; the file cannot be played properly.",
     "Encode the file again."},
    {"flac.block-overflow", D, "Invalid metadata block type\nMetadata block overflows",
     "A metadata block is of an invalid kind or runs past the end of the file; the blocks after it "
     "and possibly the audio are lost.",
     "Replace the file from a good copy, or rewrite the metadata with metaflac."},
    {"flac.comment-overflow", D,
     "Missing Vendor string\nThe Vendor string overflows\nMissing count of FLAC Comments\nFLAC Comment "
     "overflows",
     "The comment block's vendor string or a comment runs past the block; the tags after it are lost.",
     "Rewrite the tags with metaflac or a FLAC-aware tagger."},
    {"flac.comment-syntax", E, "Missing = in FLAC Comment\nFLAC Comment name contains invalid characters",
     "A comment is not NAME=value, or its name has characters the format forbids; readers drop it.",
     "Rewrite the comment."},
    {"flac.comment-control", E, "FLAC value for Comment '*' contains control characters",
     "A comment's value contains invisible control characters; readers may cut or garble it.",
     "Retype the value."},
    {"flac.art-overflow", E, "Artwork block overflows",
     "A picture block's fields run past the block; readers drop the picture.", "Embed the picture again."},
    {"flac.art-picture-type", E, "Artwork block contains invalid picture type",
     "The picture type is not one of the 21 defined kinds.", "Set the picture type with a tag editor."},
    {"flac.art-mime", E, "Artwork block mime type cannot be represented as ASCII",
     "The picture's type text is not printable ASCII; readers refuse the picture.",
     "Embed the picture again."},
    {"flac.art-indirect", W, "Artwork block mime type is an indirect reference",
     "The picture block holds a link (-->) instead of an image; legal, but few players follow it.",
     "Embed the image itself."},
    {"flac.application-block", E, "Invalid length for APPLICATION block",
     "An APPLICATION block is too short to hold its identifier.", "Remove the block with metaflac."},

    // --- Ogg
    {"ogg.page", D,
     "Error reading page header\nInvalid page marker\nError reading page segment list\nPage fault\nCRC error",
     "An Ogg page is truncated, missing or fails its checksum; the audio in it is lost or garbled. "
     "Interrupted downloads and copies cause it.",
     "Replace the file from a good copy."},
    {"ogg.multiple-streams", W, "Ogg files with multiple streams not supported",
     "The file multiplexes several logical streams; legal, but it was not checked further and most "
     "music players expect one.",
     "Nothing to fix if it plays; otherwise remux it to a single stream."},
    {"ogg.identification", D,
     "Insufficient data for Ogg identification packet\nMissing or unsupported Ogg identification packet\n"
     "Invalid Opus identification packet alignment\n"
     "Missing or incomplete Ogg identification packet or non handled stream type",
     "The stream's first packet, which describes the audio, is missing, short or of an unknown codec.",
     "Replace the file from a good copy or encode it again."},
    {"ogg.framing-bit", E, "Frame bit missing in Vorbis identification packet",
     "The Vorbis identification packet lacks its closing bit; strict decoders refuse the stream.",
     "Encode the file again."},
    {"ogg.comment", D,
     "Invalid Opus tag packet alignment\nInsufficient data for comment block\nMissing Ogg comment block\n"
     "Missing or incomplete Ogg comment packet",
     "The comment packet, which every Vorbis and Opus stream must have, is missing or truncated; "
     "tags are lost and some players refuse the file.",
     "Rewrite the tags (vorbiscomment, opustags) or encode again."},

    // --- WAV and RF64
    {"wav.header", D,
     "File too small for header\nMissing RIFF id\nThe file is not marked as WAVE\nMissing ds64 chunk for "
     "WAV-RF64 file\n"
     "Invalid ds64 chunk data\nInvalid fmt chunk data\nInvalid chunk header",
     "The RIFF header, the format description or a chunk header is missing or invalid; the file "
     "may not play.",
     "Replace the file from a good copy or export it again."},
    {"wav.rf64-chunks", W, "WAV-RF64 file only extended 'data' chunks can be processed",
     "The RF64 file extends chunks other than 'data'; legal, but they were not checked.",
     "Nothing to fix if the file plays."},
    {"wav.truncated", D,
     "The file was truncated due to overflow\nThe file was truncated due to overflow. Sufficient data to "
     "recover\n"
     "Unrecoverable chunk error:*",
     "A chunk runs past the end of the file: the file was cut short (interrupted copy or "
     "recording) and its end is missing.",
     "Replace the file from a good copy; an audio editor can save what remains."},
    {"wav.size-mismatch", D, "The * contained file size of * does not represent the adjusted file size of *",
     "The size in the RIFF/RF64 header disagrees with the file: the file was cut short, had bytes "
     "appended, or a streaming writer never filled in the size.",
     "Save the file again with an audio editor, or replace it."},
    {"wav.audio-frames", E,
     "WAV audio data of * bytes is not a whole number of *-byte sample frames\n"
     "WAV audio data holds * sample frames, the header declares *",
     "The sound data ends inside a sample frame, or holds more or fewer frames than the 'fact' or 'ds64' "
     "count; usually a cut or badly joined file, and the end of the audio is lost or misread.",
     "Replace the file from a good copy, or rewrite it with an audio editor."},
    {"wav.no-audio-data", D, "WAV file holds no data chunk: its audio is missing",
     "The file describes its sound but holds no 'data' chunk: the chunk's name is damaged or the chunk "
     "was never written, and nothing can be played.",
     "Replace the file from a good copy."},
    {"wav.duplicate-chunk", E, "The file contains more than one data chunk\nMore than one ds64 chunk",
     "A chunk that must be unique appears twice; readers use one and ignore the other.",
     "Save the file again with an audio editor."},

    // --- AIFF
    {"aiff.header", D,
     "Insufficient data to contain a valid AIFF file\nMissing FORM chunk\nInvalid FORM type\nMissing COMM "
     "chunk\n"
     "Invalid size for COMM chunk\nThe sample rate is 0",
     "The FORM header or the COMM chunk describing the audio is missing or invalid; the file does "
     "not play properly.",
     "Replace the file from a good copy or export it again."},
    {"aiff.size-mismatch", D, "The contained file size of * does not represent the adjusted file size of *",
     "The size in the FORM header (DSDIFF: FRM8) disagrees with the file: it was cut short or had "
     "bytes appended.",
     "Save the file again with an audio editor, or replace it."},
    {"aiff.audio-frames", E,
     "AIFF audio data of * bytes is not a whole number of *-byte sample frames\n"
     "AIFF audio data holds * sample frames, the COMM chunk declares *",
     "The sound data ends inside a sample frame, or holds more or fewer frames than the COMM chunk "
     "declares; usually a cut file, and players stop early or read past the audio.",
     "Replace the file from a good copy, or rewrite it with an audio editor."},
    {"aiff.duplicate-comm", E, "More than one COMM chunk",
     "The audio description appears twice; readers may use either.", "Save the file again."},
    {"aiff.chunk-overflow", D,
     "Chunk overflows: size=*, next offset=*, file size=*\n*hunk overflows (recoverable): size=*, next "
     "offset=*, file size=*",
     "A chunk runs past the end of the file: the file was cut short and its end is missing.",
     "Replace the file from a good copy; an audio editor can save what remains."},
    {"aiff.id3-short", E, "ID3 chunk overflows by one byte",
     "The ID3 chunk has an odd size and lacks the pad byte the format requires; strict readers "
     "stop there. Some taggers write it so.",
     "Rewrite the tag with a tagger that pads chunks."},
    {"aiff.id3-size", E, "ID3 contained size does not reflect chunk size",
     "The ID3 tag inside the chunk claims a size other than the chunk's.", "Rewrite the tag."},
    {"aiff.multiple-id3", W, "Multiple ID3 chunks",
     "There is more than one ID3 chunk; readers see only one of them.", "Strip the tags and write one."},

    // --- DSF
    {"dsf.header", D,
     "Insufficient data to contain a valid DSF file\nInvalid DSF file signature\nInvalid size in DSD chunk\n"
     "Invalid fmt signature\nInvalid fmt chunk size\nInvalid bits per sample\nInvalid data signature\n"
     "Frame Sample Rate is 0\nDuration is 0",
     "A DSF header or its format description is missing or invalid; the file does not play properly.",
     "Replace the file from a good copy."},
    {"dsf.size-mismatch", D, "The contained file size of * does not match the actual file size of *",
     "The size in the DSD header disagrees with the file: it was cut short or had bytes appended.",
     "Replace the file from a good copy."},
    {"dsf.audio-blocks", E,
     "DSF audio data of * bytes is not a whole number of *-byte groups of channel blocks\n"
     "DSF audio data holds * blocks per channel, the sample count needs *",
     "The sound data ends inside a block, or holds more or fewer blocks than the sample count in the 'fmt ' "
     "chunk needs; usually a cut file, and the end of the audio is lost.",
     "Replace the file from a good copy."},
    {"dsf.format", E, "File format is not 1\nUnexpected fmt chunk size",
     "The format description has a version or size other than the one defined.", "Export the file again."},
    {"dsf.tag-position", D,
     "ID3 tag offset is past the end of the file\nID3 tag not at specified address\nID3 tag offset is inside "
     "audio data",
     "The header's pointer to the ID3 tag is wrong; the tag is lost to readers, or audio is read as tag.",
     "Rewrite the tag with a DSF-aware tagger."},

    // --- DSDIFF
    {"dff.header", D,
     "Insufficient data to contain a valid DFF file\nInvalid DFF signature\nMissing FVER chunk\n"
     "Missing FVER chunk size\nMissing PROP chunk\nMissing FS property\nMissing CHNL property\n"
     "Missing CMPR property\nInvalid number of channels (*)\nMissing DSD or DST sound chunk\n"
     "Sound chunk does not match compression type\nDST chunk too small\nMissing DST-FRTE chunk",
     "A required DSDIFF chunk or property is missing or invalid; the file does not play properly.",
     "Replace the file from a good copy."},
    {"dff.chunk-overflow", D, "Chunk overflows. size=*, next offset=*, file size=*",
     "A chunk runs past the end of the file: the file was cut short.", "Replace the file from a good copy."},
    {"dff.duplicate", E,
     "Duplicate CHNL property\nDuplicate CMPR property\nDuplicate FS property\nFile contains more than one "
     "sound chunk",
     "A property or chunk that must be unique appears twice; readers use either.", "Export the file again."},
    {"dff.id3-position", W, "ID3 tag precedes sound chunk",
     "The ID3 chunk comes before the audio; allowed by the layout but some players expect it at the end.",
     "Rewrite the tag with a DSDIFF-aware tagger."},

    // --- MPEG-4
    {"mp4.atom-overflow", D,
     "'*' Atom overflows container\n'*-*' atom overflows. size=*, next offset=*, container end=*\nAtom too "
     "small\n"
     "'*' overflows file size (truncated)",
     "An atom runs past its container or the file, or is too small to exist: the file was cut short "
     "or written wrongly; what follows is lost.",
     "Replace the file from a good copy; remuxing (ffmpeg -c copy) may save what remains."},
    {"mp4.rtng-length", W, "'rtng' atom has invalid length",
     "The content-rating item has the length one old store writer used; readers cope with it.",
     "Nothing to fix; rewriting the item removes the line."},
    {"mp4.no-atoms", D, "No atoms in file\nMissing ftyp atom\nInsufficient data to represent audio format",
     "The file does not start with an MPEG-4 layout; it is not an MPEG-4 file or its start is damaged.",
     "Replace the file, or give it the extension of what it really is."},
    // The advice is given whenever the start of the file is readable but has
    // no MPEG-4 layout (an MP3 file is the common case), so it means the
    // file cannot be read as MPEG-4: damage, not a rename hint.
    {"mp4.looks-like-mp3", D,
     "The file starts with an ID3 marker. More than likely the file is an mp3 file.  Try changing the "
     "filename extension to .mp3",
     "The file is named as MPEG-4 but has no MPEG-4 layout at its start: it is another kind of file "
     "(often an MP3 file, as the message guesses) or its start is damaged.",
     "If it is an MP3 file, change the extension to .mp3; otherwise replace it from a good copy."},
    {"mp4.fragmented", W, "File contains at least one unsupported moof atom.",
     "The file is fragmented (moof atoms), which is legal; its layout was not checked further.",
     "Nothing to fix if it plays; remuxing makes an ordinary file."},
    {"mp4.missing-atom", D,
     "file is missing moov atom\nfile is missing mdat atom. (No audio)\nMissing trak-mdia atom\n"
     "Missing trak-mdia-hdlr atom\nInvalid format or read error\nFile is missing trak-mdia-minf atom\n"
     "File is missing trak-mdia-stbl atom\nFile is missing trak-mdia-stbl-(stco|co64) atom\n"
     "The file does not have an audio or video track",
     "An atom every playable MPEG-4 file needs is missing; the file does not play. Interrupted "
     "recordings or downloads cause it.",
     "Replace the file from a good copy."},
    {"mp4.no-audio-track", E, "No audio track located", "The file has tracks but none of them is audio.",
     "Check that the file is the one intended."},
    {"mp4.item-data", E,
     "Missing 'data' atom\nInsufficient data in 'data' atom\n'*' atom has too many children\n"
     "'*' atom has invalid number of children\n'*' atom has invalid 'data' qualifier\n"
     "Invalid qualifier for 'stik' atom\n'*' atom 'data' contents cannot be converted to UTF8\n"
     "'*' item missing 'data' atom\nInsufficient data in 'covr' atom item",
     "A metadata item's data atom is missing, short, of the wrong kind or not valid text; readers drop the "
     "item.",
     "Rewrite the item with a tag editor."},
    {"mp4.freeform-item", E, "----* has format errors",
     "A free-form (----) item lacks its mean, name or data part, or repeats one; readers drop it.",
     "Rewrite the item with a tag editor."},
    {"mp4.freeform-multiple-data", W, "----* has multiple data atoms",
     "A free-form item holds several values; legal, but many readers show only the first.",
     "Keep one value, or allow it with the MPEG4_MulData option."},

    // --- audio verification (the audio itself, with --verify)
    {"audio.more-findings", N, "* more audio problems in this file are not listed",
     "The audio has more problems than are listed; only the first few are written.",
     "See the listed problems; the file needs replacing in any case."},
    {"audio.not-verified", W, "Audio not verified: the audio decoders could not be loaded",
     "The program's audio decoders module is missing or damaged, so the audio was not verified; it is "
     "not known to be broken.",
     "Reinstall the program; the standard error output names the missing file and the reason."},
    {"audio.not-decoded", W, "Audio not decoded: * exceed the decoding memory budget",
     "The file's index (frames, samples, tracks, chained streams or headers) is larger than a worker may "
     "hold while decoding, so its structure was checked but its audio not decoded; it is not known to be "
     "broken. Real files are far below the budget.",
     "Check the file with its format's own decoder if it matters."},
    {"audio.read-failed", D, "The audio could not be read to the end of the file",
     "Reading the audio failed before its end: the disk failed or the file changed during the check.",
     "Check the disk, then check the file again."},
    {"flac.verify-no-streaminfo", W, "FLAC audio cannot be verified without a valid STREAMINFO block",
     "Without a valid STREAMINFO block the frames cannot be checked against the stream's parameters.",
     "Re-encode the file from a good copy."},
    {"flac.audio-damaged", D,
     "FLAC audio does not start with a valid frame header; * bytes skipped\nFLAC frame CRC mismatch at *\n"
     "FLAC last frame at * is cut short or followed by data that is not audio\n"
     "FLAC lost sync at *: the audio up to * is missing\nFLAC file holds no audio frames, STREAMINFO "
     "declares *\n"
     "FLAC decoder error at *: *\nFLAC decoded audio does not match the MD5 signature in STREAMINFO",
     "The audio frames are damaged: a checksum fails, frames are missing or cut, or the decoded audio "
     "differs from what was encoded. Players skip or click at that point. Bad disks, interrupted copies "
     "and failing downloads cause it.",
     "Replace the file from a good copy, or re-rip the source."},
    {"flac.frame-order", E, "FLAC frame at * is out of sequence",
     "A frame's number or sample position does not follow the one before it; frames were lost or spliced.",
     "Re-encode the file from a good copy."},
    {"flac.total-samples", E,
     "FLAC frames hold * of audio, STREAMINFO declares *\nFLAC decoded audio lasts *, STREAMINFO declares *",
     "The audio is shorter or longer than the stream header says; players show a wrong length and seek "
     "badly.",
     "Re-encode from a good copy (flac -f --decode-through-errors, then encode) to rewrite the header."},
    {"flac.md5-unset", N, "FLAC STREAMINFO holds no MD5 signature of the audio",
     "The encoder did not store the audio's MD5, so decoding cannot prove the audio is as encoded.",
     "Re-encode with an encoder that stores the MD5 (flac does by default)."},
    {"wv.audio-damaged", D,
     "WavPack file holds no audio block\nWavPack block checksum mismatch at *\n"
     "WavPack block at * is cut short by the end of the file\nWavPack lost sync after *: * bytes are not "
     "audio blocks\nWavPack decoder cannot open the file: *\nWavPack decoded audio fails its checksum at *\n"
     "WavPack decoded audio does not match its stored MD5 signature",
     "WavPack audio blocks are missing, cut or fail their checksum; the audio there is lost.",
     "Replace the file from a good copy."},
    {"wv.block-order", E, "WavPack block at * is out of sequence (expected *)",
     "A block's sample position does not follow the one before it; blocks were lost or spliced.",
     "Replace the file from a good copy."},
    {"wv.trailing-data", E, "* bytes after the last WavPack block are not audio",
     "Bytes that are neither audio nor a tag follow the audio: a failed write or another file's tail.",
     "Remove the bytes (re-encode or re-tag the file)."},
    {"wv.total-samples", E,
     "WavPack blocks hold * of audio, the header declares *\nWavPack decoded audio lasts *, the header "
     "declares *",
     "The audio is shorter or longer than the header declares; usually a cut file.",
     "Replace the file from a good copy."},
    {"mp3.audio-damaged", D,
     "MPEG audio holds no frames\nMPEG audio lost sync at *: * bytes are not audio frames\n"
     "MPEG audio frame at * is cut short by the end of the file\n"
     "LAME tag audio CRC mismatch: the audio frames are damaged\n"
     "MPEG audio decoder error at *: *\nMPEG audio decoder lost sync at *: * bytes skipped\n"
     "MPEG audio decoder stopped at *: * bytes were not decoded",
     "MPEG audio frames are missing, cut or damaged; players skip or click there.",
     "Replace the file from a good copy."},
    {"mp3.trailing-data", E, "* bytes after the last MPEG audio frame are not audio",
     "Bytes that are neither frames nor a tag follow the audio: a failed write or another file's tail.",
     "Remove the bytes with an MP3 repair tool, or replace the file."},
    {"mp3.summary-mismatch", E,
     "MPEG audio holds * frames, the * header declares *\nMPEG audio holds * bytes, the * header declares *\n"
     "LAME tag CRC mismatch: the header frame is damaged",
     "The Xing/Info/VBRI summary disagrees with the audio (or is damaged): players show a wrong length and "
     "seek badly. A cut or joined file is the usual cause.",
     "Rewrite the summary header (an MP3 repair tool), or replace the file."},
    {"ogg.audio-damaged", D,
     "Ogg file holds no page\nOgg lost sync after *: * bytes are not Ogg pages\nOgg page CRC mismatch after "
     "*\n"
     "Ogg page after * is cut short by the end of the file\nOgg page sequence jumps after *: * pages are "
     "missing",
     "Ogg pages are missing, cut or fail their checksum; the audio in them is lost.",
     "Replace the file from a good copy."},
    {"ogg.granule-order", E, "Ogg granule position goes back after *",
     "A page's sample position is before the previous one; players seek wrongly.",
     "Replace or re-encode the file."},
    {"ogg.trailing-data", E, "* bytes after the last Ogg page are not audio",
     "Bytes that are not Ogg pages follow the last page: a failed write or another file's tail.",
     "Remove the bytes, or replace the file."},
    {"ogg.no-end-of-stream", E, "Ogg stream ends at * without its end-of-stream page",
     "The stream has no final page: the file was cut or the encoder stopped early.",
     "Replace the file from a good copy."},
    {"ogg.decode-damaged", D,
     "Ogg * decoder cannot open the file: *\nOgg * audio has a hole at *: packets are missing or damaged\n"
     "Ogg * stream link at * is damaged and cannot be decoded\nOgg * decoder error at *: *",
     "Decoding the Vorbis or Opus audio fails: packets are missing or damaged, and players skip or stop "
     "there.",
     "Replace the file from a good copy."},
    {"ogg.decoded-length", E, "Ogg * decoded audio lasts *, the last granule position gives *",
     "The decoded audio is shorter or longer than the stream's last position says; players show a wrong "
     "length and seek badly.",
     "Re-encode the file from a good copy."},
    {"dff.audio-data", E,
     "DFF sound data of * bytes is not a whole number of *-byte sample frames\n"
     "DFF sound data holds * bytes, its chunk declares *\nDFF holds * DST frames, the frame information "
     "declares *",
     "The DSD sound data is shorter than its chunk declares or ends inside a frame; usually a cut file, and "
     "the end of the audio is lost.",
     "Replace the file from a good copy."},
    {"ape.audio-cut", D, "Monkey's Audio file holds * bytes of audio data, the header declares *",
     "The audio frames end before the header says they do: the file was cut and its end is lost.",
     "Replace the file from a good copy."},
    {"ape.trailing-data", E, "* bytes after the Monkey's Audio data are not audio",
     "Bytes that are neither audio nor a tag follow the audio: a failed write or another file's tail.",
     "Remove the bytes (re-encode or re-tag the file)."},
    {"ape.seek-table", E,
     "Monkey's Audio seek table holds * frames, the header declares *\n"
     "Monkey's Audio frame * at * lies outside the audio data\n"
     "Monkey's Audio frame * starts before the frame ahead of it",
     "The seek table disagrees with the header or points outside the audio; players seek wrongly or stop.",
     "Re-encode the file from a good copy."},
    {"ape.audio-damaged", D,
     "Monkey's Audio decoder cannot open the file: *\nMonkey's Audio decoder error at *: *\n"
     "Monkey's Audio could not be read past *: *",
     "Decoding the audio fails: frames are damaged or missing, and players skip, click or stop there.",
     "Replace the file from a good copy."},
    {"ape.total-samples", E, "Monkey's Audio decoded audio lasts *, the header declares *",
     "The decoded audio is shorter or longer than the header declares; usually a cut or damaged file.",
     "Replace the file from a good copy."},
    {"mp4.audio-damaged", D,
     "MPEG-4 audio decoder cannot open the file: *\nMPEG-4 audio decoder error at *: *\n"
     "MPEG-4 audio could not be read past *: *",
     "Decoding the track's audio fails: samples are damaged or missing, and players skip, click or stop "
     "there.",
     "Replace the file from a good copy."},
    {"mp4.total-samples", E, "MPEG-4 decoded audio lasts *, the track declares *",
     "The decoded audio is shorter or longer than the track's duration; players show a wrong length.",
     "Remux the file (ffmpeg -c copy), or replace it."},
    {"mp4.chunk-beyond-file", D, "MPEG-4 track * chunk * (* bytes) lies beyond the end of the file",
     "The sample table points to audio past the end of the file: the file was cut short.",
     "Replace the file from a good copy."},
    {"mp4.sample-table", E,
     "MPEG-4 track * chunk * (* bytes) lies outside the media data\n"
     "MPEG-4 track *: its chunks hold * samples, the sample size table lists *\n"
     "MPEG-4 track *: the sample table is damaged",
     "The sample table disagrees with itself or points outside the media data; players may stop or skip.",
     "Remux the file (ffmpeg -c copy), or replace it."},
};

// A pattern cut at its wildcards: the first piece must start the message, the
// last must end it, the middle ones are found left to right in between.
struct CompiledPattern {
    uint16_t row;
    std::vector<std::string_view> pieces;  // pieces.size() == wildcards + 1
};

bool matches(const CompiledPattern& p, std::string_view message) {
    const auto& pieces = p.pieces;
    const std::string_view first = pieces.front();
    if (pieces.size() == 1) return message == first;
    const std::string_view last = pieces.back();
    if (message.size() < first.size() || message.size() - first.size() < last.size()) return false;
    // The ends first: they reject almost every candidate in constant time.
    if (!message.starts_with(first) || !message.ends_with(last)) return false;
    size_t pos = first.size();
    const size_t end = message.size() - last.size();
    for (size_t i = 1; i + 1 < pieces.size(); ++i) {
        const std::string_view piece = pieces[i];
        if (piece.empty()) continue;
        const size_t at = message.substr(0, end).find(piece, pos);
        if (at == std::string_view::npos) return false;
        pos = at + piece.size();
    }
    return true;
}

// Patterns grouped by their first byte; those starting with a wildcard are
// tried for every message. Within a group, table order is kept.
struct Index {
    std::vector<CompiledPattern> patterns;
    std::array<std::vector<uint32_t>, 256> byFirstByte;
    std::vector<uint32_t> leadingWildcard;
};

const Index& index() {
    static const Index built = [] {
        Index ix;
        for (size_t row = 1; row < std::size(kTable); ++row) {
            for (std::string_view pattern : patternsOf(kTable[row])) {
                CompiledPattern p{static_cast<uint16_t>(row), {}};
                size_t start = 0;
                for (;;) {
                    const size_t star = pattern.find('*', start);
                    p.pieces.push_back(pattern.substr(start, star - start));
                    if (star == std::string_view::npos) break;
                    start = star + 1;
                }
                const auto slot = static_cast<uint32_t>(ix.patterns.size());
                if (pattern.front() == '*')
                    ix.leadingWildcard.push_back(slot);
                else
                    ix.byFirstByte[static_cast<uint8_t>(pattern.front())].push_back(slot);
                ix.patterns.push_back(std::move(p));
            }
        }
        return ix;
    }();
    return built;
}

}  // namespace

std::span<const ProblemCode> problemCodes() {
    return kTable;
}

const ProblemCode& codeAt(uint16_t row) {
    return row < std::size(kTable) ? kTable[row] : kTable[kUnclassified];
}

std::vector<std::string_view> patternsOf(const ProblemCode& row) {
    std::vector<std::string_view> out;
    std::string_view all = row.patterns;
    while (!all.empty()) {
        const size_t nl = all.find('\n');
        out.push_back(all.substr(0, nl));
        if (nl == std::string_view::npos) break;
        all.remove_prefix(nl + 1);
    }
    return out;
}

uint16_t classify(std::string_view message) {
    if (message.empty()) return kUnclassified;
    const Index& ix = index();
    const auto& a = ix.byFirstByte[static_cast<uint8_t>(message.front())];
    const auto& b = ix.leadingWildcard;
    // Merge the two groups so that the earlier table row wins.
    size_t i = 0, j = 0;
    while (i < a.size() || j < b.size()) {
        uint32_t slot;
        if (j >= b.size() || (i < a.size() && a[i] < b[j]))
            slot = a[i++];
        else
            slot = b[j++];
        if (matches(ix.patterns[slot], message)) return ix.patterns[slot].row;
    }
    return kUnclassified;
}

std::optional<uint16_t> findCode(std::string_view code) {
    for (size_t row = 0; row < std::size(kTable); ++row)
        if (code == kTable[row].code) return static_cast<uint16_t>(row);
    return std::nullopt;
}

const char* severityName(Severity severity) {
    switch (severity) {
        case Severity::Note:
            return "note";
        case Severity::Warning:
            return "warning";
        case Severity::Error:
            return "error";
        case Severity::Damage:
            return "damage";
    }
    return "error";
}

std::optional<Severity> severityFromName(std::string_view name) {
    for (Severity s : {Severity::Note, Severity::Warning, Severity::Error, Severity::Damage})
        if (name == severityName(s)) return s;
    return std::nullopt;
}

namespace {

// Rows named by one selector: the code itself, a family ("id3" or "id3."),
// or a prefix ending in '*'. Empty when it names nothing.
std::vector<uint16_t> rowsNamedBy(std::string_view selector) {
    std::vector<uint16_t> rows;
    std::string_view prefix;
    bool isPrefix = false;
    if (selector.ends_with('*')) {
        prefix = selector.substr(0, selector.size() - 1);
        isPrefix = true;
    }
    for (size_t row = 0; row < std::size(kTable); ++row) {
        const std::string_view code = kTable[row].code;
        bool hit;
        if (isPrefix)
            hit = code.starts_with(prefix);
        else if (selector.ends_with('.'))
            hit = code.starts_with(selector);
        else
            hit = code == selector || (code.starts_with(selector) && code.size() > selector.size() &&
                                       code[selector.size()] == '.');
        if (hit) rows.push_back(static_cast<uint16_t>(row));
    }
    return rows;
}

std::string_view trim(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
    return s;
}

// Marks every row named in the comma-separated list; false (with the reason)
// when an entry names no code.
bool markRows(std::string_view list, std::vector<bool>& marks, std::string* reason) {
    while (!list.empty()) {
        const size_t comma = list.find(',');
        const std::string_view item = trim(list.substr(0, comma));
        list = comma == std::string_view::npos ? std::string_view() : list.substr(comma + 1);
        if (item.empty()) continue;
        const auto rows = rowsNamedBy(item);
        if (rows.empty()) {
            if (reason) *reason = "unknown problem code '" + std::string(item) + "' (see --list-codes)";
            return false;
        }
        for (uint16_t r : rows) marks[r] = true;
    }
    return true;
}

}  // namespace

Filter::Filter() : keep_(std::size(kTable), true) {}

std::optional<Filter> Filter::make(std::string_view minSeverity, std::string_view select,
                                   std::string_view ignore, std::string* reason) {
    Filter f;
    Severity floor = Severity::Note;
    minSeverity = trim(minSeverity);
    if (!minSeverity.empty()) {
        auto s = severityFromName(minSeverity);
        if (!s) {
            if (reason)
                *reason = "unknown severity '" + std::string(minSeverity) +
                          "' (expected note, warning, error or damage)";
            return std::nullopt;
        }
        floor = *s;
    }
    std::vector<bool> selected(std::size(kTable), false), ignored(std::size(kTable), false);
    if (!markRows(select, selected, reason) || !markRows(ignore, ignored, reason)) return std::nullopt;
    const bool anySelected = std::find(selected.begin(), selected.end(), true) != selected.end();
    for (size_t row = 0; row < std::size(kTable); ++row) {
        bool keep = kTable[row].severity >= floor && !ignored[row] && (!anySelected || selected[row]);
        f.keep_[row] = keep;
        if (!keep) f.passesAll_ = false;
    }
    return f;
}

}  // namespace sondrel::codes
