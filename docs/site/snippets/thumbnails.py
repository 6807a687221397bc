# [all]
import asyncio

import kxmd


async def main():
    with kxmd.Thumbnails() as thumbnails:
        pictures = await asyncio.gather(*(
            thumbnails.get(path, (128, 128), fit=True)
            for path in ("photo.jpg", "holiday.mp4", "song.m4a")))
    for picture in pictures:
        print(picture.size)


asyncio.run(main())
# [all]
