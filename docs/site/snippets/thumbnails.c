// A thumbnail in C, made while the program goes on.

#include <kxmd/kxmd_c.h>

#include <semaphore.h>
#include <stdio.h>

//! [handler]
static void show(kxmd_image* image, kxmd_error const* error, void* user_data)
{
    if (image)
        printf("%u x %u\n", kxmd_image_get_width(image), kxmd_image_get_height(image));
    else
        printf("%s\n", kxmd_error_get_message(error));
    kxmd_image_free(image); // It is ours.
    sem_post(user_data);
}
//! [handler]

int main(void)
{
    sem_t done;
    sem_init(&done, 0, 0);
    //! [request]
    kxmd_thumbnails* thumbnails = kxmd_thumbnails_new(0, NULL, NULL, NULL); // 64 MiB are kept.
    kxmd_error* error;
    if (!kxmd_thumbnails_request(
            thumbnails, "holiday.mp4", 256, 256, KXMD_THUMBNAIL_FIT, show, &done, NULL, &error))
        printf("%s\n", kxmd_error_get_message(error)); // Then the handler is never called.
    //! [request]
    else
        sem_wait(&done);
    kxmd_error_free(error);
    kxmd_thumbnails_free(thumbnails);
    sem_destroy(&done);
    return 0;
}
