# fish completion for lenslark

# "iOS iPhone 15  [ios:UDID]" holds a name and a key.
function __lenslark_devices
    printf '%s\n' booted\t'every booted simulator' all\t'every connected device'
    lenslark devices 2>/dev/null | string replace -rf '^(iOS|Android) (.*)  \[([^]]*)\].*$' '$2\t$3\n$3\t$2'
end

function __lenslark_simulators
    echo booted
    lenslark devices 2>/dev/null | string replace -rf '^iOS (.*)  \[ios:([^]]*)\].*$' '$2\t$1'
end

function __lenslark_media
    lenslark media list 2>/dev/null | string replace -r '  pinned$' '' |
        string replace -rf '^[0-9a-f]{64}  ([a-z]+)  ([0-9]+x[0-9]+) +(.*)$' '$3\t$1 $2'
end

# Whether the command line has these words in these places, and is at the word after them.
function __lenslark_after
    set -l words (commandline -opc)
    test (count $words) -eq (math (count $argv) + 1); or return 1
    test "$words[2..-1]" = "$argv"
end

# Whether it begins with these words.
function __lenslark_in
    set -l words (commandline -opc)
    test (count $words) -gt (count $argv); or return 1
    test "$words[2.."(math (count $argv) + 1)"]" = "$argv"
end

complete -c lenslark -f

complete -c lenslark -n __fish_use_subcommand -a source -d 'decide and tell what cameras see'
complete -c lenslark -n __fish_use_subcommand -a devices -d 'list simulators and emulators'
complete -c lenslark -n __fish_use_subcommand -a media -d 'manage the media library'
complete -c lenslark -n __fish_use_subcommand -a snapshot -d 'write what a camera sees to a file'
complete -c lenslark -n __fish_use_subcommand -a serve -d 'run the cameras'
complete -c lenslark -n __fish_use_subcommand -a app -d 'control the menu-bar app'
complete -c lenslark -n __fish_use_subcommand -a mcp -d 'serve agents on standard input and output'
complete -c lenslark -n __fish_use_subcommand -a doctor -d 'check permissions, injectors and feeds'
complete -c lenslark -n __fish_use_subcommand -a status -d 'a short overview'
complete -c lenslark -n __fish_use_subcommand -a sources -d 'list what can be captured'
complete -c lenslark -n __fish_use_subcommand -a ios -d 'launch simulator apps with the camera'
complete -c lenslark -n __fish_use_subcommand -a android -d 'launch emulators with the camera'
complete -c lenslark -n __fish_use_subcommand -a version -d 'print the version'
complete -c lenslark -n __fish_use_subcommand -a help -d 'print the help'

complete -c lenslark -n '__lenslark_after source' -a 'set get reset'
complete -c lenslark -n '__lenslark_after source set' -a 'desktop image video slideshow pattern display window'
for kind in image video slideshow
    complete -c lenslark -n "__lenslark_in source set $kind" -F
end
complete -c lenslark -n '__lenslark_in source set' -l overlay -r -F -d 'picture laid over'
complete -c lenslark -n '__lenslark_in source set' -l anchor -x -a 'top-left top top-right left center right bottom-left bottom bottom-right' -d 'where the overlay sits'
complete -c lenslark -n '__lenslark_in source set' -l scale -x -d 'size of the overlay'
complete -c lenslark -n '__lenslark_in source set' -l opacity -x -d 'opacity of the overlay'
complete -c lenslark -n '__lenslark_in source set' -l x -x -d 'position of the overlay'
complete -c lenslark -n '__lenslark_in source set' -l y -x -d 'position of the overlay'
complete -c lenslark -n '__lenslark_in source set' -l once -d 'play a video once'
complete -c lenslark -n '__lenslark_in source set' -l interval -x -d 'seconds for each picture'
complete -c lenslark -n '__lenslark_in source reset' -l all -d 'forget every setting'
complete -c lenslark -n '__lenslark_in source; or __lenslark_in snapshot' -l device -x -a '(__lenslark_devices)' -d 'whose cameras'
complete -c lenslark -n '__lenslark_in source; or __lenslark_in snapshot' -l camera -x -a 'back front' -d 'which camera'
complete -c lenslark -n '__lenslark_in source; and not __lenslark_in source reset' -l json -d 'print JSON'

complete -c lenslark -n '__lenslark_after media' -a 'add list rm pin unpin'
complete -c lenslark -n '__lenslark_in media add' -F
complete -c lenslark -n '__lenslark_in media add' -l pin -d 'keep the items'
complete -c lenslark -n '__lenslark_in media add; or __lenslark_in media list' -l json -d 'print JSON'
for verb in rm pin unpin
    complete -c lenslark -n "__lenslark_after media $verb" -a '(__lenslark_media)'
end
complete -c lenslark -n '__lenslark_in media rm' -l force -d 'even when a camera shows it'

complete -c lenslark -n '__lenslark_in devices; or __lenslark_in sources; or __lenslark_in doctor' -l json -d 'print JSON'
complete -c lenslark -n '__lenslark_in doctor' -l fix -d 'mend what can be mended'
complete -c lenslark -n '__lenslark_in snapshot' -s o -r -F -d 'where to write it'

complete -c lenslark -n '__lenslark_in serve' -l display -x -d 'show a display'
complete -c lenslark -n '__lenslark_in serve' -l window -x -d 'show a window'
complete -c lenslark -n '__lenslark_in serve' -l test-pattern -d 'show the test pattern'
complete -c lenslark -n '__lenslark_in serve' -l image -r -F -d 'show a picture'
complete -c lenslark -n '__lenslark_in serve' -l video -r -F -d 'show a film'
complete -c lenslark -n '__lenslark_in serve' -l fps -x -d 'frames per second'
complete -c lenslark -n '__lenslark_in serve' -l mode -x -a 'fit fill' -d 'how pictures meet the frame'

complete -c lenslark -n '__lenslark_after app' -a 'enable disable toggle status'
complete -c lenslark -n '__lenslark_after ios' -a 'launch enable disable'
complete -c lenslark -n '__lenslark_in ios' -l udid -x -a '(__lenslark_simulators)' -d 'which simulator'
complete -c lenslark -n '__lenslark_after android' -a 'launch webcams avds'
complete -c lenslark -n '__lenslark_after android launch' -a '(lenslark android avds 2>/dev/null)'
complete -c lenslark -n '__lenslark_in android launch' -l back -d 'feed the back camera'
complete -c lenslark -n '__lenslark_in android launch' -l front -d 'feed the front camera'
