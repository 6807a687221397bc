// What takes this machine's services, in C: probes, thumbnails, preparation.

#include "ChecksInC.h"
#include "UseOfC.h"

#include <kxmd/kxmd_c.h>

#include <pthread.h>
#include <stdio.h>
#include <string.h>

// Probes.

void c_use_probe(c_media const* media)
{
    size_t count = 0;
    kxmd_error* error = NULL;
    kxmd_probe* const sound = kxmd_probe_path(media->sound, &error);
    CHECK(sound && !error);
    CHECK(is_text(kxmd_probe_get_container(sound), "wav"));
    CHECK(kxmd_probe_get_duration(sound) == 1);
    kxmd_stream const* const stream = kxmd_probe_get_streams(sound, &count);
    CHECK(count == 1 && stream && stream->kind == KXMD_STREAM_AUDIO);
    CHECK(stream && is_text(stream->codec, "pcm_s16le") && is_text(stream->language, ""));
    CHECK(stream && stream->sample_rate == 8000 && stream->channels == 1 && stream->bits == 16);
    CHECK(stream && stream->bit_rate == 128000 && stream->width == 0 && stream->rotation == 0);
    CHECK(kxmd_probe_get_pictures(sound, &count) == NULL && count == 0);
    kxmd_probe_free(sound);
    kxmd_probe* const song = kxmd_probe_path(media->tagged, &error);
    kxmd_probe_tag const* const tags = kxmd_probe_get_tags(song, &count);
    CHECK(count == 1 && tags && is_text(tags->name, "title") && is_text(tags->value, "Blue"));
    kxmd_probe_free(song);
    CHECK(!kxmd_probe_path(media->text, &error));
    CHECK_ERROR(KXMD_ERROR_NOT_MEDIA, "is no media");
}

// Thumbnails.

static void check_sizes(kxmd_image const* image, uint32_t width, uint32_t height)
{
    CHECK(kxmd_image_get_width(image) == width);
    CHECK(kxmd_image_get_height(image) == height);
}

void c_use_thumbnails(c_media const* media)
{
    kxmd_error* error = NULL;
    kxmd_thumbnails* const thumbnails = kxmd_thumbnails_new(1 << 20, NULL, NULL, &error);
    CHECK(thumbnails && !error);
    kxmd_image* const square
        = kxmd_thumbnails_make(thumbnails, media->picture, 24, 24, KXMD_THUMBNAIL_SQUARE, &error);
    check_sizes(square, 24, 24);
    kxmd_image* const fitted
        = kxmd_thumbnails_make(thumbnails, media->picture, 30, 30, KXMD_THUMBNAIL_FIT, &error);
    check_sizes(fitted, 30, 20);
    kxmd_image_free(square);
    kxmd_image_free(fitted);
    CHECK(!kxmd_thumbnails_make(thumbnails, media->text, 0, 24, KXMD_THUMBNAIL_FIT, &error));
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "size");
    CHECK(!kxmd_thumbnails_make(
        thumbnails, media->text, 8, KXMD_LONGEST_THUMBNAIL_SIDE + 1, KXMD_THUMBNAIL_FIT, &error));
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "size");
    CHECK(!kxmd_thumbnails_make(thumbnails, media->text, 8, 8, (kxmd_thumbnail_shape)2, &error));
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "shape");
    CHECK(!kxmd_thumbnails_make(thumbnails, NULL, 8, 8, KXMD_THUMBNAIL_FIT, &error));
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "path");
    CHECK(!kxmd_thumbnails_make(thumbnails, media->sound, 8, 8, KXMD_THUMBNAIL_FIT, &error));
    CHECK_ERROR(KXMD_ERROR_NOT_FOUND, "cannot be shown");
    kxmd_thumbnails_free(thumbnails);
}

/// What handlers were called with, and what a loop has to run.
typedef struct state {
    pthread_mutex_t mutex;
    pthread_cond_t changed;
    int images, errors, cancelled, posts;
    uint32_t width;
    kxmd_error_code last_code;
    pthread_t thread; ///< Of the last call.
    int work_count, works_run;
    void (*works[16])(void*);
    void* contexts[16];
} state;

static void begin_state(state* now)
{
    memset(now, 0, sizeof *now);
    pthread_mutex_init(&now->mutex, NULL);
    pthread_cond_init(&now->changed, NULL);
}

static void end_state(state* now)
{
    pthread_cond_destroy(&now->changed);
    pthread_mutex_destroy(&now->mutex);
}

static void take_thumbnail(kxmd_image* image, kxmd_error const* error, void* user_data)
{
    state* const now = user_data;
    CHECK((image == NULL) == (error != NULL));
    pthread_mutex_lock(&now->mutex);
    if (image)
        now->images += 1;
    else if (kxmd_error_get_code(error) == KXMD_ERROR_CANCELLED)
        now->cancelled += is_text(kxmd_error_get_message(error), "was cancelled");
    else
        now->errors += 1;
    now->width = kxmd_image_get_width(image);
    now->last_code = kxmd_error_get_code(error);
    now->thread = pthread_self();
    pthread_cond_broadcast(&now->changed);
    pthread_mutex_unlock(&now->mutex);
    kxmd_image_free(image);
}

static void wait_for_calls(state* now, int count)
{
    pthread_mutex_lock(&now->mutex);
    while (now->images + now->errors + now->cancelled < count)
        pthread_cond_wait(&now->changed, &now->mutex);
    pthread_mutex_unlock(&now->mutex);
}

void c_use_requests(c_media const* media)
{
    state now;
    kxmd_error* error = NULL;
    kxmd_request* request = NULL;
    begin_state(&now);
    kxmd_thumbnails* const thumbnails = kxmd_thumbnails_new(0, NULL, NULL, &error);
    CHECK(kxmd_thumbnails_request(thumbnails, media->picture, 20, 10, KXMD_THUMBNAIL_SQUARE,
        take_thumbnail, &now, NULL, &error));
    wait_for_calls(&now, 1);
    CHECK(!error && now.images == 1 && now.width == 20);
    CHECK(!pthread_equal(now.thread, pthread_self()));
    CHECK(kxmd_thumbnails_request(thumbnails, media->sound, 20, 10, KXMD_THUMBNAIL_FIT,
        take_thumbnail, &now, &request, &error));
    wait_for_calls(&now, 2);
    CHECK(request && now.errors == 1 && now.last_code == KXMD_ERROR_NOT_FOUND);
    kxmd_request_cancel(request); // Too late.
    kxmd_request_free(request);
    CHECK(!kxmd_thumbnails_request(
        thumbnails, media->picture, 20, 10, KXMD_THUMBNAIL_FIT, NULL, &now, &request, &error));
    CHECK(request == NULL);
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "handler");
    CHECK(!kxmd_thumbnails_request(
        thumbnails, NULL, 20, 10, KXMD_THUMBNAIL_FIT, take_thumbnail, &now, NULL, &error));
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "path");
    kxmd_thumbnails_free(thumbnails);
    CHECK(now.images == 1 && now.errors == 1 && now.cancelled == 0);
    end_state(&now);
}

static void post(void (*work)(void*), void* context, void* user_data)
{
    state* const now = user_data;
    pthread_mutex_lock(&now->mutex);
    now->works[now->work_count] = work;
    now->contexts[now->work_count++] = context;
    pthread_cond_broadcast(&now->changed);
    pthread_mutex_unlock(&now->mutex);
}

/// Runs works until `count` were run, here.
static void run_loop(state* now, int count)
{
    while (now->works_run < count) {
        pthread_mutex_lock(&now->mutex);
        while (now->works_run == now->work_count)
            pthread_cond_wait(&now->changed, &now->mutex);
        int const next = now->works_run++;
        pthread_mutex_unlock(&now->mutex);
        now->works[next](now->contexts[next]);
    }
}

void c_use_requests_in_a_loop(c_media const* media)
{
    state now;
    kxmd_error* error = NULL;
    begin_state(&now);
    kxmd_thumbnails* const thumbnails = kxmd_thumbnails_new(0, post, &now, &error);
    CHECK(kxmd_thumbnails_request(thumbnails, media->picture, 20, 10, KXMD_THUMBNAIL_SQUARE,
        take_thumbnail, &now, NULL, &error));
    run_loop(&now, 1);
    CHECK(!error && now.images == 1 && now.width == 20);
    CHECK(pthread_equal(now.thread, pthread_self()));
    kxmd_thumbnails_free(thumbnails);
    end_state(&now);
}

/// Has the picture made, and waits until its work is in the loop.
static void request_and_wait(
    kxmd_thumbnails* thumbnails, char const* path, state* now, kxmd_request** request)
{
    int const count = now->work_count + 1;
    CHECK(kxmd_thumbnails_request(
        thumbnails, path, 20, 10, KXMD_THUMBNAIL_FIT, take_thumbnail, now, request, NULL));
    pthread_mutex_lock(&now->mutex);
    while (now->work_count < count)
        pthread_cond_wait(&now->changed, &now->mutex);
    pthread_mutex_unlock(&now->mutex);
}

void c_use_requests_that_are_cancelled(c_media const* media)
{
    state now;
    kxmd_request* request = NULL;
    begin_state(&now);
    kxmd_thumbnails* thumbnails = kxmd_thumbnails_new(0, post, &now, NULL);
    request_and_wait(thumbnails, media->picture, &now, &request);
    kxmd_request_cancel(request);
    kxmd_request_cancel(request);
    kxmd_request_free(request);
    CHECK(now.cancelled == 0); // Not from here.
    run_loop(&now, 1);
    CHECK(now.cancelled == 1 && now.images == 0);
    request_and_wait(thumbnails, media->picture, &now, NULL);
    kxmd_thumbnails_free(thumbnails); // Cancels it.
    CHECK(now.cancelled == 1);
    run_loop(&now, 2);
    CHECK(now.cancelled == 2 && now.images == 0);
    thumbnails = kxmd_thumbnails_new(0, NULL, NULL, NULL);
    for (int i = 0; i < 10; ++i)
        CHECK(kxmd_thumbnails_request(thumbnails, media->picture, 9, 9, KXMD_THUMBNAIL_FIT,
            take_thumbnail, &now, NULL, NULL));
    kxmd_thumbnails_free(thumbnails);
    wait_for_calls(&now, 12); // Each of them once, whatever became of it.
    CHECK(now.images + now.cancelled == 12 && now.errors == 0);
    end_state(&now);
}

// Preparation.

static void prepare_music(c_media const* media, char const* target)
{
    unsigned done = 99;
    kxmd_error* error = NULL;
    unsigned const all = KXMD_STEP_CONVERT | KXMD_STEP_CLEAN | KXMD_STEP_CLEAN_CAMERA_DATA
        | KXMD_STEP_INSERT_COVER;
    CHECK(kxmd_prepare_file(media->song, target, all, NULL, 0, &done, &error));
    CHECK(!error && done == 0); // It is as it should be.
    CHECK(kxmd_prepare_file(
        media->bare, target, all, media->jpeg, media->jpeg_length, &done, &error));
    CHECK(!error && done == KXMD_STEP_INSERT_COVER);
    CHECK(kxmd_prepare_file(
        media->tagged, target, all, media->png, media->png_length, &done, &error));
    CHECK(!error && done == KXMD_STEP_INSERT_COVER);
    CHECK(kxmd_prepare_file(media->tagged, target, all, NULL, 0, &done, &error));
    CHECK(!error && done == 0); // There is no picture.
    if (!media->has_converter)
        return;
    CHECK(kxmd_prepare_file(
        media->sound, target, all, media->jpeg, media->jpeg_length, &done, &error));
    CHECK(!error && done == (KXMD_STEP_CONVERT | KXMD_STEP_INSERT_COVER));
    CHECK(kxmd_type_of_path(target, NULL) == KXMD_TYPE_MP4);
    kxmd_file* const converted = kxmd_file_open(target, NULL);
    CHECK(kxmd_file_get_cover_size(converted) == media->jpeg_length + 24);
    CHECK(kxmd_file_has_valid_cover(converted));
    kxmd_file_free(converted);
}

static uint64_t size_of(char const* path)
{
    kxmd_file* const file = kxmd_file_open(path, NULL);
    uint64_t const size = kxmd_file_get_size(file);
    kxmd_file_free(file);
    return size;
}

static void prepare_recording(c_media const* media, char const* target)
{
    unsigned done = 99;
    kxmd_error* error = NULL;
    uint64_t const whole = size_of(media->recording);
    CHECK(kxmd_prepare_file(media->recording, target, 0, NULL, 0, NULL, &error));
    CHECK(!error && size_of(target) == whole);
    CHECK(kxmd_prepare_file(media->recording, target, KXMD_STEP_CLEAN, NULL, 0, &done, &error));
    CHECK(!error && done == KXMD_STEP_CLEAN && size_of(target) < whole);
    uint64_t const cleaned = size_of(target);
    CHECK(kxmd_prepare_file(media->recording, target, KXMD_STEP_CLEAN | KXMD_STEP_CLEAN_CAMERA_DATA,
        NULL, 0, &done, &error));
    CHECK(!error && done == (KXMD_STEP_CLEAN | KXMD_STEP_CLEAN_CAMERA_DATA));
    CHECK(size_of(target) < cleaned);
}

void c_use_preparation(c_media const* media)
{
    char target[512];
    unsigned done = 99;
    kxmd_error* error = NULL;
    snprintf(target, sizeof target, "%s/prepared", media->folder);
    prepare_music(media, target);
    prepare_recording(media, target);
    CHECK(!kxmd_prepare_file(media->song, media->song, 0, NULL, 0, &done, &error));
    CHECK(done == 0);
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "is the source itself");
    CHECK(!kxmd_prepare_file(media->song, target, 16, NULL, 0, &done, &error));
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "step");
    CHECK(!kxmd_prepare_file(media->song, target, 8, "a", 0, &done, &error));
    CHECK_ERROR(KXMD_ERROR_ARGUMENT, "picture");
    CHECK(!kxmd_prepare_file(media->tagged, target, 8, "a", 1, &done, &error));
    CHECK_ERROR(KXMD_ERROR_NOT_MEDIA, "is not a picture");
    snprintf(target, sizeof target, "%s/unsafe", media->folder);
    CHECK(!kxmd_prepare_file(media->fragile, target, KXMD_STEP_INSERT_COVER, media->jpeg,
        media->jpeg_length, &done, &error));
    CHECK_ERROR(KXMD_ERROR_NOT_SAFE, "64-bit chunk offset table");
    CHECK(kxmd_file_open(target, NULL) == NULL);
}
