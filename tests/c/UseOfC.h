#pragma once

// What the tests of the C interface do in C, on files that their C++ side makes.

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Paths of files, and bytes.
typedef struct c_media {
    char const* folder; ///< For what is written.
    char const* song; ///< An MP4 file with title, artist, sound and a cover of 300 by 300.
    char const* fragile; ///< An MP4 file whose media no edit would survive.
    char const* tagged; ///< An MP3 file with a title and no cover.
    char const* bare; ///< An MP3 file without a tag.
    char const* recording; ///< A video, with user data and other data of a camera.
    char const* photo; ///< A JPEG with the preview "preview".
    char const* sound; ///< A WAV file of a second: 8000 Hz, one channel, 16 bits.
    char const* picture; ///< A PNG of 60 by 40.
    char const* text;
    uint8_t const* jpeg; ///< Of 300 by 300.
    size_t jpeg_length;
    uint8_t const* png; ///< What `picture` is.
    size_t png_length;
    bool has_converter;
} c_media;

/// Reports a failure unless `is_true`. In C++.
void c_check(bool is_true, char const* what, char const* file, int line);

void c_use_library(char const* version, int number, void (*log)(char const* text));
void c_use_null(void);
void c_use_song(c_media const* media);
void c_use_other_files(c_media const* media);
void c_use_files_that_fail(c_media const* media);
void c_use_images(c_media const* media);
void c_use_covers(c_media const* media);
void c_use_edits_in_memory(c_media const* media);
void c_use_edits_of_files(c_media const* media);
void c_use_edits_that_fail(c_media const* media);
void c_use_probe(c_media const* media);
void c_use_thumbnails(c_media const* media);
void c_use_requests(c_media const* media);
void c_use_requests_in_a_loop(c_media const* media);
void c_use_requests_that_are_cancelled(c_media const* media);
void c_use_preparation(c_media const* media);

#ifdef __cplusplus
}
#endif
