// Files, their pictures and their edits, in C.

#include "ChecksInC.h"
#include "UseOfC.h"

#include <kxmd/kxmd_c.h>

#include <errno.h>
#include <stdio.h>
#include <string.h>

static void path_in(char* path, size_t size, c_media const* media, char const* name)
{
    snprintf(path, size, "%s/%s", media->folder, name);
}

// The library.

static char logged[64];

static void keep_line(char const* category, char const* text, void* user_data)
{
    snprintf(logged, sizeof logged, "%s: %s%s", category, text, (char const*)user_data);
}

void c_use_library(char const* version, int number, void (*log)(char const* text))
{
    CHECK(is_text(kxmd_version(), version));
    CHECK(kxmd_version_number() == number);
    kxmd_error* error = (kxmd_error*)&logged; // What is there is overwritten.
    CHECK(kxmd_set_log_handler(keep_line, "!", &error));
    CHECK(error == NULL);
    log("one");
    CHECK(is_text(logged, "Metadata: one!"));
    CHECK(kxmd_set_log_handler(NULL, NULL, NULL));
    log("two");
    CHECK(is_text(logged, "Metadata: one!"));
}

static void use_null_objects(void)
{
    CHECK(kxmd_error_get_code(NULL) == KXMD_ERROR_NONE);
    CHECK(kxmd_error_get_errno(NULL) == 0);
    CHECK(is_text(kxmd_error_get_message(NULL), ""));
    CHECK(kxmd_bytes_get_data(NULL) == NULL);
    CHECK(kxmd_bytes_get_length(NULL) == 0);
    CHECK(kxmd_file_get_type(NULL) == KXMD_TYPE_UNKNOWN);
    CHECK(kxmd_file_get_detected_type(NULL) == KXMD_TYPE_UNKNOWN);
    CHECK(kxmd_file_get_size(NULL) == 0);
    CHECK(kxmd_file_get_read_error(NULL) == 0);
    CHECK(kxmd_file_get_tag(NULL, KXMD_TAG_NAME, NULL) == NULL);
    CHECK(!kxmd_file_has_video(NULL));
    CHECK(!kxmd_file_has_valid_cover(NULL));
    CHECK(!kxmd_file_can_insert_cover(NULL));
    CHECK(kxmd_file_get_cover_size(NULL) == 0);
    CHECK(kxmd_image_get_width(NULL) == 0);
    CHECK(kxmd_image_get_height(NULL) == 0);
    CHECK(kxmd_image_get_stride(NULL) == 0);
    CHECK(kxmd_image_get_pixels(NULL) == NULL);
    CHECK(kxmd_probe_get_container(NULL) == NULL);
    CHECK(kxmd_probe_get_duration(NULL) == 0);
}

static void use_null_lists(void)
{
    size_t count = 1;
    CHECK(kxmd_file_get_codecs(NULL, &count) == NULL && count == 0);
    CHECK(kxmd_probe_get_streams(NULL, &count) == NULL && count == 0);
    CHECK(kxmd_probe_get_tags(NULL, &count) == NULL && count == 0);
    CHECK(kxmd_probe_get_pictures(NULL, &count) == NULL && count == 0);
    CHECK(kxmd_file_get_codecs(NULL, NULL) == NULL);
    kxmd_error_free(NULL);
    kxmd_bytes_free(NULL);
    kxmd_file_free(NULL);
    kxmd_image_free(NULL);
    kxmd_probe_free(NULL);
    kxmd_thumbnails_free(NULL);
    kxmd_request_cancel(NULL);
    kxmd_request_free(NULL);
}

static void ignore_thumbnail(kxmd_image* image, kxmd_error const* error, void* user_data)
{
    (void)error, (void)user_data;
    kxmd_image_free(image);
    CHECK(false);
}

static void use_null_arguments(void)
{
    kxmd_error* error = NULL;
    CHECK(kxmd_type_of_path(NULL, &error) == KXMD_TYPE_UNKNOWN);
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "path");
    CHECK(kxmd_file_open(NULL, &error) == NULL);
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "path");
    CHECK(kxmd_file_open("", &error) == NULL);
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "path");
    CHECK(kxmd_file_open(NULL, NULL) == NULL);
    CHECK(kxmd_file_open_bytes(NULL, 1, &error) == NULL);
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "bytes");
    CHECK(kxmd_file_open_bytes("", SIZE_MAX, &error) == NULL);
    CHECK_ERROR(KXMD_ERROR_MEMORY, "memory");
    CHECK(kxmd_image_decode(NULL, 1, &error) == NULL);
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "picture");
    CHECK(kxmd_image_decode("", 0, &error) == NULL);
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "picture");
    CHECK(kxmd_image_encode(NULL, KXMD_PICTURE_PNG, &error) == NULL);
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "picture");
    CHECK(kxmd_file_decode_cover(NULL, &error) == NULL);
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "file");
    CHECK(kxmd_file_extract_cover(NULL, &error) == NULL);
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "file");
    CHECK(kxmd_file_extract_preview(NULL, &error) == NULL);
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "file");
    CHECK(kxmd_probe_path(NULL, &error) == NULL);
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "path");
    CHECK(kxmd_thumbnails_make(NULL, "a", 1, 1, KXMD_THUMBNAIL_FIT, &error) == NULL);
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "handle");
    CHECK(!kxmd_thumbnails_request(
        NULL, "a", 1, 1, KXMD_THUMBNAIL_FIT, ignore_thumbnail, NULL, NULL, &error));
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "handle");
}

static void use_null_edits(void)
{
    kxmd_error* error = NULL;
    CHECK(!kxmd_file_check_insertion(NULL, "a", 1, KXMD_EDIT_SAFELY, &error));
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "file");
    CHECK(!kxmd_file_check_removal(NULL, &error));
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "file");
    CHECK(!kxmd_file_insert_cover(NULL, "a", 1, "b", KXMD_EDIT_SAFELY, &error));
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "file");
    CHECK(!kxmd_file_insert_cover_in_memory(NULL, "a", 1, KXMD_EDIT_SAFELY, &error));
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "file");
    CHECK(!kxmd_file_remove_cover(NULL, "b", KXMD_EDIT_SAFELY, &error));
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "file");
    CHECK(!kxmd_file_remove_cover_in_memory(NULL, KXMD_EDIT_SAFELY, &error));
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "file");
    CHECK(!kxmd_prepare_file(NULL, "b", 0, NULL, 0, NULL, &error));
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "source");
    CHECK(!kxmd_prepare_file("a", NULL, 0, NULL, 0, NULL, &error));
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "target");
}

void c_use_null(void)
{
    use_null_objects();
    use_null_lists();
    use_null_arguments();
    use_null_edits();
}

// Files.

static void check_song(kxmd_file const* file)
{
    size_t length = 0, count = 0;
    CHECK(kxmd_file_get_type(file) == KXMD_TYPE_MP4);
    CHECK(kxmd_file_get_detected_type(file) == KXMD_TYPE_MP4);
    CHECK(kxmd_file_get_read_error(file) == 0);
    CHECK(is_text(kxmd_file_get_tag(file, KXMD_TAG_NAME, &length), "Blue"));
    CHECK(length == 4);
    CHECK(is_text(kxmd_file_get_tag(file, KXMD_TAG_ARTIST, NULL), "The Waves"));
    CHECK(is_text(kxmd_file_get_tag(file, KXMD_TAG_ALBUM, NULL), "Sea"));
    CHECK(kxmd_file_get_tag(file, KXMD_TAG_ALBUM_ARTIST, &length) == NULL);
    CHECK(length == 0);
    CHECK(kxmd_file_get_tag(file, (kxmd_tag)4, NULL) == NULL);
    CHECK(!kxmd_file_has_video(file));
    kxmd_codec_info const* const codecs = kxmd_file_get_codecs(file, &count);
    CHECK(count == 1 && codecs);
    if (!codecs)
        return;
    CHECK(codecs->kind == KXMD_STREAM_AUDIO);
    CHECK(codecs->codec == KXMD_CODEC_AAC);
    CHECK(codecs->profile == 2);
    CHECK(codecs->level == 0);
    CHECK(codecs->bit_rate == 128000);
    CHECK(codecs->width == 0 && codecs->height == 0);
    CHECK(codecs->channels == 2);
    CHECK(strstr(codecs->description, "AAC") != NULL);
}

void c_use_song(c_media const* media)
{
    kxmd_error* error = NULL;
    CHECK(kxmd_type_of_path(media->song, &error) == KXMD_TYPE_MP4);
    kxmd_file* const file = kxmd_file_open(media->song, &error);
    CHECK(file && !error);
    CHECK(kxmd_file_get_size(file) > media->jpeg_length);
    check_song(file);
    CHECK(kxmd_file_has_valid_cover(file));
    CHECK(kxmd_file_can_insert_cover(file));
    CHECK(kxmd_file_get_cover_size(file) == media->jpeg_length + 24);
    kxmd_bytes* const removed = kxmd_file_remove_cover_in_memory(file, KXMD_EDIT_SAFELY, &error);
    kxmd_file* const in_memory = kxmd_file_open_bytes(
        kxmd_bytes_get_data(removed), kxmd_bytes_get_length(removed), &error);
    CHECK(kxmd_file_get_size(in_memory) == kxmd_bytes_get_length(removed));
    kxmd_bytes_free(removed); // The handle has a copy.
    check_song(in_memory);
    CHECK(!kxmd_file_has_valid_cover(in_memory));
    CHECK(kxmd_file_get_cover_size(in_memory) == 0);
    kxmd_file_free(in_memory);
    kxmd_file_free(file);
}

void c_use_other_files(c_media const* media)
{
    size_t count = 0;
    CHECK(kxmd_type_of_path(media->tagged, NULL) == KXMD_TYPE_MP3);
    CHECK(kxmd_type_of_path(media->photo, NULL) == KXMD_TYPE_JPEG);
    CHECK(kxmd_type_of_path(media->text, NULL) == KXMD_TYPE_UNKNOWN);
    kxmd_file* const video = kxmd_file_open(media->recording, NULL);
    CHECK(kxmd_file_has_video(video));
    kxmd_codec_info const* const codecs = kxmd_file_get_codecs(video, &count);
    CHECK(count == 2 && codecs && codecs[0].kind == KXMD_STREAM_VIDEO);
    CHECK(codecs && codecs[0].codec == KXMD_CODEC_AVC && codecs[0].profile == 77);
    CHECK(codecs && codecs[0].level == 30 && codecs[0].width == 320 && codecs[0].height == 240);
    CHECK(codecs && codecs[1].kind == KXMD_STREAM_AUDIO);
    kxmd_file_free(video);
    kxmd_file* const photo = kxmd_file_open(media->photo, NULL);
    CHECK(kxmd_file_get_type(photo) == KXMD_TYPE_UNKNOWN);
    CHECK(kxmd_file_get_detected_type(photo) == KXMD_TYPE_JPEG);
    CHECK(kxmd_file_get_codecs(photo, &count) == NULL && count == 0);
    kxmd_file_free(photo);
    kxmd_file* const nothing = kxmd_file_open_bytes(NULL, 0, NULL);
    CHECK(nothing && kxmd_file_get_size(nothing) == 0);
    kxmd_file_free(nothing);
}

void c_use_files_that_fail(c_media const* media)
{
    char missing[512];
    kxmd_error* error = NULL;
    path_in(missing, sizeof missing, media, "nowhere");
    CHECK(kxmd_file_open(missing, &error) == NULL);
    CHECK(kxmd_error_get_errno(error) == ENOENT);
    CHECK_ERROR(KXMD_ERROR_OPEN, "cannot be opened: No such file");
    CHECK(kxmd_type_of_path(missing, &error) == KXMD_TYPE_UNKNOWN);
    CHECK_ERROR(KXMD_ERROR_OPEN, "cannot be opened");
    CHECK(kxmd_file_open(media->folder, &error) == NULL);
    CHECK(kxmd_error_get_errno(error) == 0);
    CHECK_ERROR(KXMD_ERROR_OPEN, "is not a regular file");
    CHECK(kxmd_probe_path(missing, &error) == NULL);
    CHECK_ERROR(KXMD_ERROR_OPEN, "cannot be opened");
    kxmd_thumbnails* const thumbnails = kxmd_thumbnails_new(0, NULL, NULL, &error);
    CHECK(!kxmd_thumbnails_make(thumbnails, missing, 8, 8, KXMD_THUMBNAIL_FIT, &error));
    CHECK_ERROR(KXMD_ERROR_OPEN, "cannot be opened");
    kxmd_thumbnails_free(thumbnails);
    CHECK(!kxmd_prepare_file(missing, media->text, 0, NULL, 0, NULL, &error));
    CHECK_ERROR(KXMD_ERROR_OPEN, "cannot be opened");
}

// Pictures.

void c_use_images(c_media const* media)
{
    kxmd_error* error = NULL;
    kxmd_image* const image = kxmd_image_decode(media->png, media->png_length, &error);
    CHECK(image && !error);
    CHECK(kxmd_image_get_width(image) == 60);
    CHECK(kxmd_image_get_height(image) == 40);
    CHECK(kxmd_image_get_stride(image) == 240);
    uint8_t const red[] = { 255, 0, 0, 255 };
    CHECK(image && memcmp(kxmd_image_get_pixels(image), red, sizeof red) == 0);
    CHECK(image && memcmp(kxmd_image_get_pixels(image) + 40 * 240 - 4, red, sizeof red) == 0);
    kxmd_bytes* const png = kxmd_image_encode(image, KXMD_PICTURE_PNG, &error);
    CHECK(png && memcmp(kxmd_bytes_get_data(png), "\x89PNG", 4) == 0);
    kxmd_bytes* const jpeg = kxmd_image_encode(image, KXMD_PICTURE_JPEG, &error);
    CHECK(jpeg && memcmp(kxmd_bytes_get_data(jpeg), "\xFF\xD8", 2) == 0);
    CHECK(!kxmd_image_encode(image, (kxmd_picture_format)7, &error));
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "format");
    CHECK(!kxmd_image_decode("no picture", 10, &error));
    CHECK_ERROR(KXMD_ERROR_NOT_MEDIA, "is not a picture");
    kxmd_bytes_free(jpeg);
    kxmd_bytes_free(png);
    kxmd_image_free(image);
}

void c_use_covers(c_media const* media)
{
    kxmd_error* error = NULL;
    kxmd_file* const song = kxmd_file_open(media->song, &error);
    kxmd_image* const cover = kxmd_file_decode_cover(song, &error);
    CHECK(kxmd_image_get_width(cover) == 300 && kxmd_image_get_height(cover) == 300);
    kxmd_image_free(cover);
    kxmd_bytes* const extracted = kxmd_file_extract_cover(song, &error);
    CHECK(kxmd_bytes_get_length(extracted) == media->jpeg_length);
    CHECK(
        extracted && memcmp(kxmd_bytes_get_data(extracted), media->jpeg, media->jpeg_length) == 0);
    kxmd_bytes_free(extracted);
    CHECK(!kxmd_file_extract_preview(song, &error));
    CHECK_ERROR(KXMD_ERROR_NOT_FOUND, "preview");
    kxmd_file_free(song);
    kxmd_file* const tagged = kxmd_file_open(media->tagged, &error);
    CHECK(!kxmd_file_decode_cover(tagged, &error));
    CHECK_ERROR(KXMD_ERROR_NOT_FOUND, "has no cover");
    CHECK(!kxmd_file_extract_cover(tagged, &error));
    CHECK_ERROR(KXMD_ERROR_NOT_FOUND, "has no cover");
    kxmd_file_free(tagged);
    kxmd_file* const photo = kxmd_file_open(media->photo, &error);
    kxmd_bytes* const preview = kxmd_file_extract_preview(photo, &error);
    CHECK(kxmd_bytes_get_length(preview) == 7);
    CHECK(preview && memcmp(kxmd_bytes_get_data(preview), "preview", 7) == 0);
    kxmd_bytes_free(preview);
    kxmd_file_free(photo);
}

// Edits.

/// Whether the bytes are a file with a cover of that length.
static bool has_cover_of(void const* bytes, size_t length, uint64_t cover)
{
    kxmd_file* const file = kxmd_file_open_bytes(bytes, length, NULL);
    bool const has = kxmd_file_get_cover_size(file) == cover;
    CHECK(is_text(kxmd_file_get_tag(file, KXMD_TAG_NAME, NULL), "Blue"));
    kxmd_file_free(file);
    return has;
}

void c_use_edits_in_memory(c_media const* media)
{
    kxmd_error* error = NULL;
    kxmd_file* const file = kxmd_file_open(media->song, &error);
    kxmd_bytes* const inserted = kxmd_file_insert_cover_in_memory(
        file, media->png, media->png_length, KXMD_EDIT_SAFELY, &error);
    CHECK(inserted && !error);
    CHECK(!has_cover_of( // It is encoded as JPEG.
        kxmd_bytes_get_data(inserted), kxmd_bytes_get_length(inserted), media->png_length + 24));
    kxmd_bytes* const removed = kxmd_file_remove_cover_in_memory(file, KXMD_EDIT_ANYWAY, &error);
    CHECK(has_cover_of(kxmd_bytes_get_data(removed), kxmd_bytes_get_length(removed), 0));
    kxmd_file* const bare = kxmd_file_open_bytes(
        kxmd_bytes_get_data(removed), kxmd_bytes_get_length(removed), &error);
    kxmd_bytes* const again = kxmd_file_insert_cover_in_memory(
        bare, media->jpeg, media->jpeg_length, KXMD_EDIT_SAFELY, &error);
    CHECK(has_cover_of(
        kxmd_bytes_get_data(again), kxmd_bytes_get_length(again), media->jpeg_length + 24));
    CHECK(kxmd_bytes_get_length(again) == kxmd_file_get_size(file));
    kxmd_file_free(bare);
    kxmd_bytes_free(again);
    kxmd_bytes_free(removed);
    kxmd_bytes_free(inserted);
    kxmd_file_free(file);
}

static uint64_t cover_size_of(char const* path)
{
    kxmd_file* const file = kxmd_file_open(path, NULL);
    CHECK(file != NULL);
    uint64_t const size = kxmd_file_get_cover_size(file);
    kxmd_file_free(file);
    return size;
}

static void edit_in_place(c_media const* media, char const* path)
{
    kxmd_error* error = NULL;
    kxmd_file* const file = kxmd_file_open(path, &error);
    CHECK(kxmd_file_check_removal(file, &error));
    CHECK(kxmd_file_remove_cover(file, NULL, KXMD_EDIT_SAFELY, &error));
    CHECK(!error && cover_size_of(path) == 0);
    CHECK(kxmd_file_get_cover_size(file) == media->jpeg_length + 24); // As it was opened.
    CHECK(!kxmd_file_remove_cover(file, NULL, KXMD_EDIT_SAFELY, &error));
    CHECK_ERROR(KXMD_ERROR_CHANGED, "changed since it was opened");
    kxmd_file_free(file);
}

void c_use_edits_of_files(c_media const* media)
{
    char copy[512], other[512];
    kxmd_error* error = NULL;
    path_in(copy, sizeof copy, media, "copy.m4a");
    path_in(other, sizeof other, media, "other.mp3");
    kxmd_file* const song = kxmd_file_open(media->song, &error);
    CHECK(
        kxmd_file_check_insertion(song, media->jpeg, media->jpeg_length, KXMD_EDIT_SAFELY, &error));
    CHECK(kxmd_file_insert_cover(
        song, media->jpeg, media->jpeg_length, copy, KXMD_EDIT_SAFELY, &error));
    CHECK(!error && cover_size_of(copy) == media->jpeg_length + 24);
    kxmd_file_free(song);
    edit_in_place(media, copy);
    kxmd_file* const bare = kxmd_file_open(media->bare, &error);
    CHECK(!kxmd_file_insert_cover(
        bare, media->jpeg, media->jpeg_length, other, KXMD_EDIT_SAFELY, &error));
    CHECK_ERROR(KXMD_ERROR_NOT_MEDIA, "neither an MP3 file with tags nor an MP4 file");
    CHECK(kxmd_file_insert_cover(
        bare, media->jpeg, media->jpeg_length, other, KXMD_EDIT_MAKE_PLACE, &error));
    CHECK(!error && cover_size_of(other) > media->jpeg_length);
    kxmd_file_free(bare);
    kxmd_file* const in_memory = kxmd_file_open_bytes("ID3", 3, &error);
    CHECK(!kxmd_file_remove_cover(in_memory, NULL, KXMD_EDIT_SAFELY, &error));
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "target");
    kxmd_file_free(in_memory);
}

static void edit_fragile(c_media const* media)
{
    char target[512];
    kxmd_error* error = NULL;
    path_in(target, sizeof target, media, "fragile-copy.m4a");
    kxmd_file* const file = kxmd_file_open(media->fragile, &error);
    CHECK(!kxmd_file_check_removal(file, &error));
    CHECK_ERROR(KXMD_ERROR_NOT_SAFE, "64-bit chunk offset table");
    CHECK(!kxmd_file_check_insertion(
        file, media->jpeg, media->jpeg_length, KXMD_EDIT_SAFELY, &error));
    CHECK_ERROR(KXMD_ERROR_NOT_SAFE, "64-bit chunk offset table");
    CHECK(!kxmd_file_remove_cover(file, target, KXMD_EDIT_SAFELY, &error));
    CHECK_ERROR(KXMD_ERROR_NOT_SAFE, "64-bit chunk offset table");
    CHECK(kxmd_type_of_path(target, NULL) == KXMD_TYPE_UNKNOWN); // Nothing is written.
    CHECK(!kxmd_file_insert_cover_in_memory(
        file, media->jpeg, media->jpeg_length, KXMD_EDIT_SAFELY, &error));
    CHECK_ERROR(KXMD_ERROR_NOT_SAFE, "64-bit chunk offset table");
    CHECK(kxmd_file_remove_cover(file, target, KXMD_EDIT_ANYWAY, &error));
    CHECK(!error && cover_size_of(target) == 0);
    kxmd_file_free(file);
}

void c_use_edits_that_fail(c_media const* media)
{
    char target[512];
    kxmd_error* error = NULL;
    edit_fragile(media);
    path_in(target, sizeof target, media, "no folder/a.m4a");
    kxmd_file* const song = kxmd_file_open(media->song, &error);
    CHECK(!kxmd_file_remove_cover(song, target, KXMD_EDIT_SAFELY, &error));
    CHECK(kxmd_error_get_errno(error) == ENOENT);
    CHECK_ERROR(KXMD_ERROR_WRITE, "cannot be written to");
    CHECK(!kxmd_file_remove_cover(song, media->folder, KXMD_EDIT_SAFELY, &error));
    CHECK_ERROR(KXMD_ERROR_WRITE, "is a folder");
    CHECK(!kxmd_file_remove_cover(song, "", KXMD_EDIT_SAFELY, &error));
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "target");
    CHECK(!kxmd_file_remove_cover(song, target, 8, &error));
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "flag");
    CHECK(!kxmd_file_insert_cover(song, NULL, 5, target, KXMD_EDIT_SAFELY, &error));
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "picture");
    CHECK(!kxmd_file_insert_cover(song, "text", 4, target, KXMD_EDIT_SAFELY, &error));
    CHECK_ERROR(KXMD_ERROR_NOT_MEDIA, "is not a picture");
    kxmd_file_free(song);
    kxmd_file* const photo = kxmd_file_open(media->photo, &error);
    CHECK(!kxmd_file_remove_cover_in_memory(photo, KXMD_EDIT_ANYWAY, &error));
    CHECK_ERROR(KXMD_ERROR_NOT_MEDIA, "neither");
    kxmd_file_free(photo);
    kxmd_file* const recording = kxmd_file_open(media->recording, &error);
    CHECK(!kxmd_file_insert_cover_in_memory(
        recording, media->jpeg, media->jpeg_length, KXMD_EDIT_SAFELY, &error));
    CHECK_ERROR(KXMD_ERROR_NOT_POSSIBLE, "no place for a cover");
    kxmd_file_free(recording);
}
