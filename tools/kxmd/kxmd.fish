# fish completion for kxmd

# The subcommand that is typed, with what it does to covers; empty before there is one.
function __kxmd_command
    set -l command
    for word in (commandline -opc)[2..]
        string match -q -- '-*' $word; and continue
        set -a command $word
        if test $command[1] != cover -o (count $command) -eq 2
            break
        end
    end
    echo "$command"
end

function __kxmd_runs
    set -l command (__kxmd_command)
    contains -- "$command" $argv
end

complete -c kxmd -f
complete -c kxmd -s h -l help -d 'Show the usage'
complete -c kxmd -s q -l quiet -d 'Hide log lines and progress'
complete -c kxmd -n '__kxmd_runs ""' -l version -d 'Show the version'

complete -c kxmd -n '__kxmd_runs ""' -a info -d 'Tell what is in each file'
complete -c kxmd -n '__kxmd_runs ""' -a atoms -d 'Print the atom tree of a file'
complete -c kxmd -n '__kxmd_runs ""' -a frames -d 'List the ID3v2 frames of a file'
complete -c kxmd -n '__kxmd_runs ""' -a exif -d 'Find the preview in a photograph'
complete -c kxmd -n '__kxmd_runs ""' -a thumbnail -d 'Write the pictures that stand for files'
complete -c kxmd -n '__kxmd_runs ""' -a composite -d 'Write the pictures of four files in one'
complete -c kxmd -n '__kxmd_runs ""' -a icon -d 'Write the icon of a type'
complete -c kxmd -n '__kxmd_runs ""' -a poster -d 'Write the poster frame of a movie'
complete -c kxmd -n '__kxmd_runs ""' -a cache-name -d 'Print the cache name of a picture'
complete -c kxmd -n '__kxmd_runs ""' -a cover -d 'Extract, remove or add the album cover'
complete -c kxmd -n '__kxmd_runs ""' -a clean -d "Copy a phone's video without its user data"
complete -c kxmd -n '__kxmd_runs ""' -a convert -d 'Copy lossless audio as AAC'
complete -c kxmd -n '__kxmd_runs ""' -a prepare -d 'Make a collection ready for a phone'
complete -c kxmd -n '__kxmd_runs ""' -a sheet -d 'Write a page that shows what is in files'
complete -c kxmd -n '__kxmd_runs ""' -a doctor -d 'Show what this machine offers'
complete -c kxmd -n '__kxmd_runs cover' -a extract -d 'Write the cover as a picture'
complete -c kxmd -n '__kxmd_runs cover' -a remove -d 'Write a copy without covers'
complete -c kxmd -n '__kxmd_runs cover' -a add -d 'Write a copy with a picture as its cover'

set -l files info atoms frames exif thumbnail composite icon poster 'cover extract' 'cover remove' 'cover add' \
    clean convert prepare sheet
complete -c kxmd -n "__kxmd_runs $(string escape -- $files | string join ' ')" -F
complete -c kxmd -n '__kxmd_runs cache-name; and __fish_contains_opt file composite' -F

set -l json info atoms frames exif 'cover extract' 'cover remove' 'cover add' clean convert prepare doctor
complete -c kxmd -n "__kxmd_runs $(string escape -- $json | string join ' ')" -l json -d 'Print JSON'
set -l output exif thumbnail composite icon poster 'cover extract' 'cover remove' 'cover add' clean convert sheet
complete -c kxmd -n "__kxmd_runs $(string escape -- $output | string join ' ')" -s o -l output -r -F \
    -d 'Write to this file'
complete -c kxmd -n '__kxmd_runs thumbnail composite icon cache-name' -s s -l size -x \
    -a '64x64 128x128 256x256 512x512 1024x1024' -d 'Size in points'
complete -c kxmd -n '__kxmd_runs info thumbnail prepare sheet' -s j -l jobs -x -d 'Files to work on at once'
complete -c kxmd -n '__kxmd_runs info thumbnail' -s r -l recursive -d 'Take all files in folders, too'
complete -c kxmd -n '__kxmd_runs thumbnail prepare' -l to -x -a '(__fish_complete_directories)' \
    -d 'Write to this folder'
complete -c kxmd -n '__kxmd_runs "cover remove" "cover add" clean' -l force \
    -d 'Edit even if the media does not survive it'

complete -c kxmd -n '__kxmd_runs info' -l probe -d 'Tell also what the movie library finds'
complete -c kxmd -n '__kxmd_runs atoms' -l paths -d 'Print full paths and sizes'
complete -c kxmd -n '__kxmd_runs thumbnail' -l fit -d "Keep the picture's shape within the size"
complete -c kxmd -n '__kxmd_runs thumbnail' -l png -d 'Write a PNG, whatever the name'
complete -c kxmd -n '__kxmd_runs cache-name' -l file -d 'Take KEY for a file, and read its tags'
complete -c kxmd -n '__kxmd_runs cache-name' -l composite -d 'Take the KEYs for files of a composite'

complete -c kxmd -n '__kxmd_runs prepare' -s n -l dry-run -d 'Tell what would be done, and do nothing'
complete -c kxmd -n '__kxmd_runs prepare' -l checksum -d 'Tell by contents which files have changed'
complete -c kxmd -n '__kxmd_runs prepare' -l delete -d 'Remove prepared files whose sources are gone'
complete -c kxmd -n '__kxmd_runs prepare' -l delete-many -d 'The same, even for more than a third'
complete -c kxmd -n '__kxmd_runs prepare' -l anyway -d 'Begin even if there is not enough space'
complete -c kxmd -n '__kxmd_runs prepare' -l no-covers -d 'Insert no album covers'
complete -c kxmd -n '__kxmd_runs prepare' -l no-clean -d 'Clean no phone videos'
complete -c kxmd -n '__kxmd_runs prepare' -l no-convert -d 'Convert no lossless audio'
complete -c kxmd -n '__kxmd_runs prepare' -l keep-metadata -d 'Remove only the user data of phone videos'
complete -c kxmd -n '__kxmd_runs prepare' -l cover-size -x -d 'Width and height of covers'
complete -c kxmd -n '__kxmd_runs prepare' -l playlist -x -d 'Also write a playlist of this name'
complete -c kxmd -n '__kxmd_runs prepare' -l playlist-each-folder -d 'Also write a playlist of each folder'
complete -c kxmd -n '__kxmd_runs prepare' -l playlist-format -x -a 'm3u m3u8' -d 'Format of playlists'
complete -c kxmd -n '__kxmd_runs prepare' -l exclude -x -d 'Leave out files and folders that match'
complete -c kxmd -n '__kxmd_runs prepare' -l include -x -d 'Take files and folders that match'
complete -c kxmd -n '__kxmd_runs prepare' -l all -d 'Take what is left out otherwise'
complete -c kxmd -n '__kxmd_runs prepare' -l follow-links -d 'Follow links that lead elsewhere'
complete -c kxmd -n '__kxmd_runs prepare' -l report -r -F -d 'Also write a page that shows all files'
