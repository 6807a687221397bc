#pragma once

/// The library for C, and for languages that call C.
///
/// Objects are handles: a function that makes one returns it, or NULL; the caller frees it with the
/// function of that type that ends in `_free`, which takes NULL. What a getter returns belongs to
/// its handle and lives as long as that; a getter of NULL returns 0, false or NULL.
///
/// A function that can fail takes the address of a `kxmd_error*`, or NULL where nobody wants to
/// know. It stores NULL there at its beginning, and a new error, the caller's, where it fails. Then
/// it returns NULL or false, and has changed nothing unless it says otherwise.
///
/// Texts are UTF-8 and end at their first zero byte. Paths are the bytes that the system takes.
///
/// A handle is used by one thread at a time, different ones at once. What its type says is
/// "unchanging" may be read from any number of threads. Callbacks run under no lock of the library.
///
/// Pictures, movies and sound are decoded, encoded and converted in other processes; the first
/// function that needs one loads the libraries of the desktop and starts it. Nothing else does:
/// neither types, tags and codecs nor embedded covers, previews and edits with a JPEG.
///
/// No C++ exception leaves a function. Callbacks must return: they neither throw nor jump.

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

/// Marks what the shared library offers.
#define KXMD_C_EXPORT __attribute__((visibility("default")))

// NOLINTBEGIN(readability-identifier-naming): these names are C's.
#ifdef __cplusplus
/// Tells C++ that no exception leaves a function.
#define KXMD_C_NOEXCEPT noexcept
/// The type beneath enumerations in C++. What C passes is looked at, be it one of the constants or
/// not.
#define KXMD_C_INT : int
extern "C" {
#else
#define KXMD_C_NOEXCEPT
#define KXMD_C_INT
#endif

// Errors.

/// What went wrong. Numbers are only ever added.
typedef enum kxmd_error_code KXMD_C_INT {
    KXMD_ERROR_NONE = 0, ///< Nothing; the code of NULL.
    KXMD_ERROR_ARGUMENT = 1, ///< An argument is NULL, empty or out of its range.
    KXMD_ERROR_MEMORY = 2, ///< There is not enough memory.
    KXMD_ERROR_OPEN = 3, ///< A file cannot be opened, or is a folder or device.
    KXMD_ERROR_READ = 4, ///< The system refused to read from an open file.
    KXMD_ERROR_WRITE = 5, ///< A file cannot be written.
    KXMD_ERROR_CHANGED = 6, ///< A file was changed by somebody else while it was used.
    KXMD_ERROR_NOT_MEDIA = 7, ///< Bytes are no media of a kind that is wanted here, or damaged.
    KXMD_ERROR_NOT_FOUND = 8, ///< What is asked for, such as a cover, is not in the file.
    KXMD_ERROR_NOT_SAFE = 9, ///< An edit would lose media or tags; the message tells why.
    KXMD_ERROR_NOT_POSSIBLE = 10, ///< An edit cannot be made, as where a cover has no place.
    KXMD_ERROR_NO_DECODER = 11, ///< This machine has nothing that decodes, encodes or converts it.
    KXMD_ERROR_CANCELLED = 12, ///< The request was cancelled.
    KXMD_ERROR_INTERNAL = 13, ///< Anything else; a fault of the library.
} kxmd_error_code;

/// Why a function failed. Unchanging.
typedef struct kxmd_error kxmd_error;

/// The kind of the error; `KXMD_ERROR_NONE` for NULL.
KXMD_C_EXPORT kxmd_error_code kxmd_error_get_code(kxmd_error const* error) KXMD_C_NOEXCEPT;

/// The system's reason as a value of `errno`; 0 when the system gave none.
KXMD_C_EXPORT int kxmd_error_get_errno(kxmd_error const* error) KXMD_C_NOEXCEPT;

/// A part of an English sentence for a person, such as "cannot be read: Input/output error";
/// empty for NULL, never NULL.
KXMD_C_EXPORT char const* kxmd_error_get_message(kxmd_error const* error) KXMD_C_NOEXCEPT;

/// Frees an error. That of lacking memory takes none, so it can always be made.
KXMD_C_EXPORT void kxmd_error_free(kxmd_error* error) KXMD_C_NOEXCEPT;

// The library.

/// The version of the library that is running, such as "0.1.0". Lives for ever.
KXMD_C_EXPORT char const* kxmd_version(void) KXMD_C_NOEXCEPT;

/// The same in one number, to be compared: 10203 for 1.2.3.
KXMD_C_EXPORT int kxmd_version_number(void) KXMD_C_NOEXCEPT;

/// Receives a line of the log: its category, "Metadata", and its text without a line end. Both live
/// until it returns. Called on the thread that logs, so possibly on several at once.
typedef void (*kxmd_log_handler)(char const* category, char const* text, void* user_data);

/// Sends log lines to `handler` from now on; NULL turns logging off. Until the first call they go
/// to standard error. A call of the old handler may still be under way on another thread when this
/// returns.
KXMD_C_EXPORT bool kxmd_set_log_handler(
    kxmd_log_handler handler, void* user_data, kxmd_error** error) KXMD_C_NOEXCEPT;

// Bytes.

/// A sequence of bytes, such as a whole file. Unchanging.
typedef struct kxmd_bytes kxmd_bytes;

/// The bytes; NULL when there are none.
KXMD_C_EXPORT void const* kxmd_bytes_get_data(kxmd_bytes const* bytes) KXMD_C_NOEXCEPT;

/// How many there are.
KXMD_C_EXPORT size_t kxmd_bytes_get_length(kxmd_bytes const* bytes) KXMD_C_NOEXCEPT;

/// Frees the bytes.
KXMD_C_EXPORT void kxmd_bytes_free(kxmd_bytes* bytes) KXMD_C_NOEXCEPT;

// Files.

/// What kind of media a file is.
typedef enum kxmd_type KXMD_C_INT {
    KXMD_TYPE_UNKNOWN = 0, ///< None of these.
    KXMD_TYPE_MP3 = 1, ///< Begins with an ID3v2 tag.
    KXMD_TYPE_MP4 = 2, ///< MP4 or QuickTime: ISO/IEC 14496-12.
    KXMD_TYPE_JPEG = 3, ///< ITU-T T.81.
} kxmd_type;

/// The descriptive tags.
typedef enum kxmd_tag KXMD_C_INT {
    KXMD_TAG_NAME = 0, ///< Title of the track or video.
    KXMD_TAG_ARTIST = 1, ///< Who performs the track.
    KXMD_TAG_ALBUM = 2, ///< Title of the album.
    KXMD_TAG_ALBUM_ARTIST = 3, ///< Whom the whole album is by.
} kxmd_tag;

/// What a stream of a media file holds.
typedef enum kxmd_stream_kind KXMD_C_INT {
    KXMD_STREAM_OTHER = 0, ///< Such as chapters or measurements.
    KXMD_STREAM_VIDEO = 1, ///< Moving pictures.
    KXMD_STREAM_AUDIO = 2, ///< Sound.
    KXMD_STREAM_SUBTITLE = 3, ///< Text or pictures shown over a video.
} kxmd_stream_kind;

/// Codecs; any other number stands for an unknown one.
typedef enum kxmd_codec KXMD_C_INT {
    KXMD_CODEC_NONE = 0, ///< None that is told here.
    KXMD_CODEC_MP3 = 1, ///< ISO/IEC 11172-3 and 13818-3, layer III.
    KXMD_CODEC_AMR = 2, ///< 3GPP TS 26.071.
    KXMD_CODEC_AMR_WB = 3, ///< 3GPP TS 26.171.
    KXMD_CODEC_ALAC = 4, ///< Lossless.
    KXMD_CODEC_AAC = 5, ///< ISO/IEC 14496-3.
    KXMD_CODEC_MP4_VISUAL = 6, ///< ISO/IEC 14496-2.
    KXMD_CODEC_AVC = 7, ///< ISO/IEC 14496-10, also known as H.264.
    KXMD_CODEC_H263 = 8, ///< ITU-T H.263.
} kxmd_codec;

/// The `profile` of a codec record that tells none.
#define KXMD_PROFILE_UNKNOWN 65535

/// One audio or video stream of an MP3 or MP4 file, by the file's own headers.
typedef struct kxmd_codec_info {
    kxmd_stream_kind kind; ///< `KXMD_STREAM_VIDEO` or `KXMD_STREAM_AUDIO`.
    int32_t codec; ///< A `kxmd_codec`, or another number for an unknown one.
    /// The codec's own profile number: the audio object type of ISO/IEC 14496-3, the high half of
    /// the profile and level indication of ISO/IEC 14496-2, profile_idc of ISO/IEC 14496-10 or the
    /// profile of H.263; `KXMD_PROFILE_UNKNOWN` without one.
    int32_t profile;
    int32_t level; ///< The codec's own level number; 30 is level 3.0 of AVC.
    double bit_rate; ///< The highest that the stream declares, in bits per second, or 0.
    double width; ///< Of the picture, in pixels; 0 for audio.
    double height; ///< Likewise.
    int32_t channels; ///< Of sound; 0 for video.
    char const* description; ///< Codec, profile and level in one line of English.
} kxmd_codec_info;

/// A media file that is open, or a block of memory with one.
typedef struct kxmd_file kxmd_file;

/// The kind of media that the file at `path` begins with, by its first bytes alone.
/// `KXMD_TYPE_UNKNOWN` for any other file, and on failure.
KXMD_C_EXPORT kxmd_type kxmd_type_of_path(char const* path, kxmd_error** error) KXMD_C_NOEXCEPT;

/// Opens the regular file at `path` and reads its headers, however long it is. A file of an unknown
/// kind can be opened as well; it has a size and no tags.
KXMD_C_EXPORT kxmd_file* kxmd_file_open(char const* path, kxmd_error** error) KXMD_C_NOEXCEPT;

/// The same for the file that the `length` bytes at `bytes` are, which are copied. `bytes` may be
/// NULL when `length` is 0.
KXMD_C_EXPORT kxmd_file* kxmd_file_open_bytes(
    void const* bytes, size_t length, kxmd_error** error) KXMD_C_NOEXCEPT;

/// The kind of media that was read; `KXMD_TYPE_UNKNOWN` as well for a file that begins as one but
/// cannot be read as such, and for a JPEG, which has no tags.
KXMD_C_EXPORT kxmd_type kxmd_file_get_type(kxmd_file const* file) KXMD_C_NOEXCEPT;

/// The kind of media that the file begins with.
KXMD_C_EXPORT kxmd_type kxmd_file_get_detected_type(kxmd_file const* file) KXMD_C_NOEXCEPT;

/// The size in bytes when the file was opened.
KXMD_C_EXPORT uint64_t kxmd_file_get_size(kxmd_file const* file) KXMD_C_NOEXCEPT;

/// The system's reason, as a value of `errno`, for the first read that it refused; 0 when it
/// refused none. What the handle tells may be wrong or incomplete then.
KXMD_C_EXPORT int kxmd_file_get_read_error(kxmd_file const* file) KXMD_C_NOEXCEPT;

/// A descriptive tag; NULL when the file does not have it. `length`, if not NULL, receives its
/// bytes: zeros among them are kept.
KXMD_C_EXPORT char const* kxmd_file_get_tag(
    kxmd_file const* file, kxmd_tag tag, size_t* length) KXMD_C_NOEXCEPT;

/// Whether an MP4 file has a video track.
KXMD_C_EXPORT bool kxmd_file_has_video(kxmd_file const* file) KXMD_C_NOEXCEPT;

/// One record for each sample description of each track of an MP4 file, in file order, those of
/// video first; one for the sound of an MP3 file. NULL when there are none. `count`, if not NULL,
/// receives their number.
KXMD_C_EXPORT kxmd_codec_info const* kxmd_file_get_codecs(
    kxmd_file const* file, size_t* count) KXMD_C_NOEXCEPT;

/// Closes the file.
KXMD_C_EXPORT void kxmd_file_free(kxmd_file* file) KXMD_C_NOEXCEPT;

// Pictures.

/// How a picture is encoded.
typedef enum kxmd_picture_format KXMD_C_INT {
    KXMD_PICTURE_PNG = 0, ///< With transparency, and nothing lost.
    KXMD_PICTURE_JPEG = 1, ///< Over white where the picture is transparent; always of one quality.
} kxmd_picture_format;

/// A decoded picture. A pixel is four bytes: red, green, blue and alpha, in sRGB, the colours
/// premultiplied by alpha. Rows run from the top. Unchanging.
typedef struct kxmd_image kxmd_image;

/// Decodes the picture that the `length` bytes at `bytes` are, upright, in a process of its own.
KXMD_C_EXPORT kxmd_image* kxmd_image_decode(
    void const* bytes, size_t length, kxmd_error** error) KXMD_C_NOEXCEPT;

/// The width in pixels.
KXMD_C_EXPORT uint32_t kxmd_image_get_width(kxmd_image const* image) KXMD_C_NOEXCEPT;

/// The height in pixels.
KXMD_C_EXPORT uint32_t kxmd_image_get_height(kxmd_image const* image) KXMD_C_NOEXCEPT;

/// Bytes from the beginning of a row to that of the next one.
KXMD_C_EXPORT size_t kxmd_image_get_stride(kxmd_image const* image) KXMD_C_NOEXCEPT;

/// The pixels: as many bytes as height times stride.
KXMD_C_EXPORT uint8_t const* kxmd_image_get_pixels(kxmd_image const* image) KXMD_C_NOEXCEPT;

/// The picture as a PNG or JPEG file.
KXMD_C_EXPORT kxmd_bytes* kxmd_image_encode(
    kxmd_image const* image, kxmd_picture_format format, kxmd_error** error) KXMD_C_NOEXCEPT;

/// Frees the picture.
KXMD_C_EXPORT void kxmd_image_free(kxmd_image* image) KXMD_C_NOEXCEPT;

// Covers and previews.

/// Whether the embedded covers are at least 200 by 200 pixels; true for files that cannot have one.
KXMD_C_EXPORT bool kxmd_file_has_valid_cover(kxmd_file const* file) KXMD_C_NOEXCEPT;

/// Whether the file has a place for a cover.
KXMD_C_EXPORT bool kxmd_file_can_insert_cover(kxmd_file const* file) KXMD_C_NOEXCEPT;

/// The bytes that the embedded covers take in the file, their headers included; 0 without one.
KXMD_C_EXPORT uint64_t kxmd_file_get_cover_size(kxmd_file const* file) KXMD_C_NOEXCEPT;

/// The embedded cover, decoded: the first front cover of an MP3 file, or else its first picture;
/// the first cover of an MP4 file; in each case of those that can be decoded.
/// `KXMD_ERROR_NOT_FOUND` without one.
KXMD_C_EXPORT kxmd_image* kxmd_file_decode_cover(
    kxmd_file* file, kxmd_error** error) KXMD_C_NOEXCEPT;

/// The cover's file as it is embedded, of whatever format; nothing is decoded. Pictures are chosen
/// in the same order, by their headers, so one that is damaged further in is found here and not
/// above. `KXMD_ERROR_NOT_FOUND` without one. `kxmd_image_encode` makes a PNG or JPEG of a cover
/// that was decoded.
KXMD_C_EXPORT kxmd_bytes* kxmd_file_extract_cover(
    kxmd_file* file, kxmd_error** error) KXMD_C_NOEXCEPT;

/// The small preview that cameras embed in the EXIF block of a JPEG file (JEITA CP-3451, 4.5), as
/// it is embedded; nothing is decoded. `KXMD_ERROR_NOT_FOUND` without one.
KXMD_C_EXPORT kxmd_bytes* kxmd_file_extract_preview(
    kxmd_file* file, kxmd_error** error) KXMD_C_NOEXCEPT;

// Edits. They read the file anew; a handle goes on telling what it told, so open a file again that
// was replaced. A file that is not what it was when the handle was opened is left alone:
// `KXMD_ERROR_CHANGED`.

/// How an edit is made, combined by "|".
typedef enum kxmd_edit_flags KXMD_C_INT {
    KXMD_EDIT_SAFELY = 0, ///< Not where media or tags would be lost for other programs.
    KXMD_EDIT_ANYWAY = 1, ///< Does not ask whether the file survives it.
    KXMD_EDIT_MAKE_PLACE = 2, ///< Makes a place for a cover in music that has none.
} kxmd_edit_flags;

/// Whether the file would survive the insertion of the picture as its cover. False with
/// `KXMD_ERROR_NOT_SAFE` when not, and with another error when it cannot be told or be made.
/// Picture and flags are as in `kxmd_file_insert_cover`; `KXMD_EDIT_ANYWAY` changes no answer.
KXMD_C_EXPORT bool kxmd_file_check_insertion(kxmd_file* file, void const* picture, size_t length,
    unsigned flags, kxmd_error** error) KXMD_C_NOEXCEPT;

/// The same for the removal of the covers.
KXMD_C_EXPORT bool kxmd_file_check_removal(kxmd_file* file, kxmd_error** error) KXMD_C_NOEXCEPT;

/// Makes a picture the only cover, in a copy of the file at `target`; NULL for the file itself.
///
/// The `length` bytes at `picture` are an encoded picture: a JPEG is embedded as it is, any other
/// is decoded and encoded as JPEG. `flags` are `kxmd_edit_flags`.
///
/// A file that is at `target` is replaced as a whole, and keeps its permissions: whatever happens,
/// the old file or the new one is there, and the new one even after an error if that was the very
/// last step. A link is followed. Where a file system cannot rename, as that of some phones, the
/// new file stays beside it, hidden, while it is copied, and the message of a failure then names
/// it. `target` may be NULL only for a file that was opened by its path.
KXMD_C_EXPORT bool kxmd_file_insert_cover(kxmd_file* file, void const* picture, size_t length,
    char const* target, unsigned flags, kxmd_error** error) KXMD_C_NOEXCEPT;

/// The same, without a file: the edited file's bytes, in memory.
KXMD_C_EXPORT kxmd_bytes* kxmd_file_insert_cover_in_memory(kxmd_file* file, void const* picture,
    size_t length, unsigned flags, kxmd_error** error) KXMD_C_NOEXCEPT;

/// Removes every cover, in a copy of the file at `target`; NULL for the file itself. Otherwise as
/// `kxmd_file_insert_cover`. A file without covers is copied as it is.
KXMD_C_EXPORT bool kxmd_file_remove_cover(
    kxmd_file* file, char const* target, unsigned flags, kxmd_error** error) KXMD_C_NOEXCEPT;

/// The same, without a file: the edited file's bytes, in memory.
KXMD_C_EXPORT kxmd_bytes* kxmd_file_remove_cover_in_memory(
    kxmd_file* file, unsigned flags, kxmd_error** error) KXMD_C_NOEXCEPT;

// What the movie library finds in a file of any kind that it plays, such as FLAC, Ogg or Matroska.

/// A stream of a media file. What does not apply, or is not known, is 0 or empty, never NULL.
typedef struct kxmd_stream {
    kxmd_stream_kind kind; ///< What it holds.
    char const* codec; ///< A short name in lower case, such as "flac" or "h264".
    char const* profile; ///< As the codec's standard names it, such as "LC" or "High".
    char const* language; ///< ISO 639-2, such as "eng".
    uint64_t bit_rate; ///< In bits per second.
    uint32_t sample_rate; ///< In Hz.
    uint32_t channels; ///< Of sound.
    uint32_t bits; ///< Of a sample, or of a component of a pixel.
    uint32_t width; ///< In pixels, as they are stored.
    uint32_t height; ///< Likewise.
    double frame_rate; ///< Frames a second: on average, or the least that fits them all.
    uint32_t rotation; ///< Degrees clockwise by which frames are turned to be shown.
} kxmd_stream;

/// A picture that is embedded in a media file.
typedef struct kxmd_picture {
    char const* kind; ///< "front", "back", "artist" and the like, or "other" (ID3v2.4 APIC, 4.14).
    char const* type; ///< Its media type, such as "image/jpeg"; empty when it is not known.
    uint32_t width; ///< In pixels; 0 when its headers are damaged.
    uint32_t height; ///< Likewise.
    uint64_t bytes; ///< Its size.
} kxmd_picture;

/// A tag of a whole media file, such as "title" and "Blue".
typedef struct kxmd_probe_tag {
    char const* name; ///< In lower case.
    char const* value; ///< At most 4096 bytes, cut there.
} kxmd_probe_tag;

/// What was found in a file. Unchanging.
typedef struct kxmd_probe kxmd_probe;

/// Looks into the file at `path`, in a process of its own, and waits for it.
/// `KXMD_ERROR_NOT_MEDIA` when nobody knows what it is.
KXMD_C_EXPORT kxmd_probe* kxmd_probe_path(char const* path, kxmd_error** error) KXMD_C_NOEXCEPT;

/// The container: a short name in lower case, such as "flac", "matroska" or "mp4".
KXMD_C_EXPORT char const* kxmd_probe_get_container(kxmd_probe const* probe) KXMD_C_NOEXCEPT;

/// The duration in seconds; 0 when it is not known.
KXMD_C_EXPORT double kxmd_probe_get_duration(kxmd_probe const* probe) KXMD_C_NOEXCEPT;

/// The streams, without embedded pictures; NULL when there are none. `count`, if not NULL, receives
/// their number.
KXMD_C_EXPORT kxmd_stream const* kxmd_probe_get_streams(
    kxmd_probe const* probe, size_t* count) KXMD_C_NOEXCEPT;

/// The tags in the order of their names; NULL when there are none. `count` as above.
KXMD_C_EXPORT kxmd_probe_tag const* kxmd_probe_get_tags(
    kxmd_probe const* probe, size_t* count) KXMD_C_NOEXCEPT;

/// The embedded pictures; NULL when there are none. `count` as above.
KXMD_C_EXPORT kxmd_picture const* kxmd_probe_get_pictures(
    kxmd_probe const* probe, size_t* count) KXMD_C_NOEXCEPT;

/// Frees what was found.
KXMD_C_EXPORT void kxmd_probe_free(kxmd_probe* probe) KXMD_C_NOEXCEPT;

// Thumbnails.

/// How the picture of a file is brought to a size.
typedef enum kxmd_thumbnail_shape KXMD_C_INT {
    KXMD_THUMBNAIL_SQUARE = 0, ///< Its largest centred square, stretched to exactly the size.
    KXMD_THUMBNAIL_FIT = 1, ///< In its own proportions, within the size and never enlarged.
} kxmd_thumbnail_shape;

/// The longest side of a thumbnail, in pixels.
#define KXMD_LONGEST_THUMBNAIL_SIDE 16384

/// Makes pictures of files: of pictures, movies, music with a cover, documents. Squares are kept in
/// memory, up to a number of bytes and until memory runs short. May be used from several threads at
/// once. In a forked process its requests may never be answered; make another handle there.
typedef struct kxmd_thumbnails kxmd_thumbnails;

/// A request for a thumbnail. May be used from several threads at once.
typedef struct kxmd_request kxmd_request;

/// Runs `work` with `context` once, later, in the host's event loop. Called on a thread of the
/// library's own, so it only hands the two over. A loop that drops work keeps its memory for good.
typedef void (*kxmd_post)(void (*work)(void* context), void* context, void* user_data);

/// Receives a thumbnail, or NULL and an error. The picture is the receiver's, to be freed; the
/// error lives until it returns.
typedef void (*kxmd_thumbnail_handler)(kxmd_image* image, kxmd_error const* error, void* user_data);

/// Begins to make thumbnails, and keeps up to `cache_bytes` bytes of pixels, or 64 MiB for 0.
///
/// Handlers are called by what `post` runs, with `user_data` handed on to `post`; without `post`,
/// on a thread of the handle's own, one after the other.
KXMD_C_EXPORT kxmd_thumbnails* kxmd_thumbnails_new(
    size_t cache_bytes, kxmd_post post, void* user_data, kxmd_error** error) KXMD_C_NOEXCEPT;

/// The picture of the file at `path`, made while the caller waits. `width` and `height` in pixels,
/// at most `KXMD_LONGEST_THUMBNAIL_SIDE`. `KXMD_ERROR_NOT_FOUND` for what cannot be shown. A square
/// that is kept is given again, whatever became of its file meanwhile.
KXMD_C_EXPORT kxmd_image* kxmd_thumbnails_make(kxmd_thumbnails* thumbnails, char const* path,
    uint32_t width, uint32_t height, kxmd_thumbnail_shape shape,
    kxmd_error** error) KXMD_C_NOEXCEPT;

/// The same later: `handler` is called exactly once, with `user_data`, unless this fails, in which
/// case it is never called. Pictures are made one by one, in the order of the requests.
///
/// `request`, if not NULL, receives a handle by which the request can be cancelled. Where the
/// system has no thread left, the picture is made, and without `post` the handler called, before
/// this returns.
KXMD_C_EXPORT bool kxmd_thumbnails_request(kxmd_thumbnails* thumbnails, char const* path,
    uint32_t width, uint32_t height, kxmd_thumbnail_shape shape, kxmd_thumbnail_handler handler,
    void* user_data, kxmd_request** request, kxmd_error** error) KXMD_C_NOEXCEPT;

/// Lets go of the picture. The handler is still called once, at its usual place and never from
/// here: with `KXMD_ERROR_CANCELLED` unless its call has begun, so whatever belongs to `user_data`
/// is always let go of there. Does nothing once the handler was called.
KXMD_C_EXPORT void kxmd_request_cancel(kxmd_request* request) KXMD_C_NOEXCEPT;

/// Frees the handle; the request itself goes on.
KXMD_C_EXPORT void kxmd_request_free(kxmd_request* request) KXMD_C_NOEXCEPT;

/// Cancels all requests and frees the handle, without waiting. Handlers that were not called yet
/// still are, once each, so `post` and what belongs to it are needed until then.
KXMD_C_EXPORT void kxmd_thumbnails_free(kxmd_thumbnails* thumbnails) KXMD_C_NOEXCEPT;

// Preparing a file for a phone.

/// What may be done to a file, combined by "|".
typedef enum kxmd_step KXMD_C_INT {
    /// Converts lossless audio to AAC of 256000 bit/s in an MPEG-4 audio file.
    KXMD_STEP_CONVERT = 1,
    /// Removes the user data of a recording, and the sound description that QuickTime nests within
    /// another. Recordings are videos in which nobody has said what they are, as by a title.
    KXMD_STEP_CLEAN = 2,
    /// Removes what a camera wrote beside that: the place, the maker, the time.
    KXMD_STEP_CLEAN_CAMERA_DATA = 4,
    /// Makes a picture the only cover of music that has no valid one, and a place for it.
    KXMD_STEP_INSERT_COVER = 8,
} kxmd_step;

/// Writes the file at `source` to `target`, prepared by those of `steps`, a combination of
/// `kxmd_step`, that suit it; a file that none suits is copied. `target` is another file, and
/// replaced as in `kxmd_file_insert_cover`; it gets the time at which the source was modified.
///
/// The `length` bytes at `cover` are an encoded picture, for `KXMD_STEP_INSERT_COVER`; NULL stands
/// for a picture of the file itself, of 256 by 256. An edit that media would not survive fails with
/// `KXMD_ERROR_NOT_SAFE`, and nothing is written.
///
/// `done`, if not NULL, receives the steps that were made. Waits for all, which may take minutes
/// for a conversion.
KXMD_C_EXPORT bool kxmd_prepare_file(char const* source, char const* target, unsigned steps,
    void const* cover, size_t length, unsigned* done, kxmd_error** error) KXMD_C_NOEXCEPT;

#ifdef __cplusplus
}
#endif
// NOLINTEND(readability-identifier-naming)
