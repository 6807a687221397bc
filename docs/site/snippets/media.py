# [read]
import kxmd

song = kxmd.read("song.m4a")
print(song.title, "by", song.artist)
for codec in song.codecs:
    print(codec.description)
# [read]

# [edit]
with kxmd.edit("song.mp3", "edited.mp3") as edit:  # Without a second path: the file itself.
    edit.cover = "cover.jpg"
print(kxmd.read("edited.mp3").has_valid_cover)
# [edit]

# [refused]
try:
    with kxmd.edit("fragmented.m4a", "edited.m4a") as edit:
        edit.cover = "cover.jpg"
except kxmd.NotSafeError as error:
    print(error)
# [refused]

# [thumbnail]
picture = kxmd.thumbnail("holiday.mp4", (256, 256))
picture.save("holiday.png")
print(picture)
# [thumbnail]

# [probe]
found = kxmd.probe("song.flac")
print(found.container, found.duration, found.tags["title"])
# [probe]

# [prepare]
print(kxmd.prepare("lossless.m4a", "phone.m4a"))
# [prepare]
