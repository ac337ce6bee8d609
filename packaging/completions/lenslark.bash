# bash completion for lenslark                                            -*- shell-script -*-

_lenslark_anchors='top-left top top-right left center right bottom-left bottom bottom-right'
_lenslark_kinds='desktop image video slideshow pattern display window'

# Offers those lines of standard input that go on from what was typed. No word is expanded by the
# shell: devices and files may be called anything.
_lenslark_offer() {
    local line quote='' typed=$cur
    case $typed in
        [\"\']*) quote=${typed:0:1} typed=${typed:1} ;;
        *) typed=${typed//\\/} ;;
    esac
    while IFS= read -r line; do
        [[ $line == "$typed"* ]] || continue
        [[ $quote ]] || printf -v line '%q' "$line"
        COMPREPLY+=("$line")
    done
}

_lenslark_words() {
    printf '%s\n' "$@" | sort -u
}

# "iOS iPhone 15  [ios:UDID]" holds a name and a key.
_lenslark_devices() {
    lenslark devices 2>/dev/null |
        sed -n -E 's/^(iOS|Android) (.*)  \[([^][]*)\](  \(not running\))?$/\2\n\3/p'
}

_lenslark_simulators() {
    lenslark devices 2>/dev/null | sed -n -E 's/^iOS .*  \[ios:([^][]*)\].*$/\1/p'
}

_lenslark_media() {
    lenslark media list 2>/dev/null |
        sed -n -E 's/  pinned$//; s/^[0-9a-f]{64}  [a-z]+  [0-9]+x[0-9]+ +//p'
}

# The value that belongs to the flag before the cursor. Fails where there is none.
_lenslark_value() {
    case $prev in
        --device) _lenslark_offer < <(_lenslark_words booted all; _lenslark_devices) ;;
        --camera) _lenslark_offer < <(_lenslark_words back front) ;;
        --anchor) _lenslark_offer < <(_lenslark_words $_lenslark_anchors) ;;
        --mode) _lenslark_offer < <(_lenslark_words fit fill) ;;
        --udid) _lenslark_offer < <(_lenslark_words booted; _lenslark_simulators) ;;
        --overlay | --image | --video | -o) _filedir ;;
        --scale | --opacity | --x | --y | --interval | --fps | --display | --window) ;;
        *) return 1 ;;
    esac
}

_lenslark_source() {
    case ${words[2]} in
        set)
            if [[ $cur == -* ]]; then
                _lenslark_offer < <(_lenslark_words --device --camera --overlay --anchor --scale \
                    --opacity --x --y --once --interval --json)
            elif ((cword == 3)); then
                _lenslark_offer < <(_lenslark_words $_lenslark_kinds)
            else
                case ${words[3]} in
                    image | video | slideshow) _filedir ;;
                esac
            fi
            ;;
        get) _lenslark_offer < <(_lenslark_words --device --camera --json) ;;
        reset) _lenslark_offer < <(_lenslark_words --device --camera --all) ;;
    esac
}

_lenslark_media_verbs() {
    case ${words[2]} in
        add)
            if [[ $cur == -* ]]; then
                _lenslark_offer < <(_lenslark_words --pin --json)
            else
                _filedir
            fi
            ;;
        list) _lenslark_offer < <(_lenslark_words --json) ;;
        rm | pin | unpin)
            if [[ $cur == -* && ${words[2]} == rm ]]; then
                _lenslark_offer < <(_lenslark_words --force)
            elif ((cword == 3)); then
                _lenslark_offer < <(_lenslark_media)
            fi
            ;;
    esac
}

_lenslark_second_word() {
    case ${words[1]} in
        source) _lenslark_offer < <(_lenslark_words set get reset) ;;
        media) _lenslark_offer < <(_lenslark_words add list rm pin unpin) ;;
        app) _lenslark_offer < <(_lenslark_words enable disable toggle status) ;;
        ios) _lenslark_offer < <(_lenslark_words launch enable disable) ;;
        android) _lenslark_offer < <(_lenslark_words launch webcams avds) ;;
        *) return 1 ;;
    esac
}

_lenslark_flags() {
    case ${words[1]} in
        source) _lenslark_source ;;
        media) _lenslark_media_verbs ;;
        devices | sources) _lenslark_offer < <(_lenslark_words --json) ;;
        doctor) _lenslark_offer < <(_lenslark_words --json --fix) ;;
        snapshot) _lenslark_offer < <(_lenslark_words --device --camera -o) ;;
        serve)
            _lenslark_offer < <(_lenslark_words --display --window --test-pattern --image \
                --video --fps --mode)
            ;;
        ios) _lenslark_offer < <(_lenslark_words --udid) ;;
        android)
            [[ ${words[2]} == launch ]] || return
            if [[ $cur == -* ]]; then
                _lenslark_offer < <(_lenslark_words --back --front --)
            elif ((cword == 3)); then
                _lenslark_offer < <(lenslark android avds 2>/dev/null)
            fi
            ;;
    esac
}

_lenslark() {
    local cur prev words cword
    _init_completion -n : || return
    if ((cword == 1)); then
        _lenslark_offer < <(_lenslark_words source devices media snapshot serve app mcp doctor \
            status sources ios android version --version help)
    elif ! _lenslark_value && { ((cword > 2)) || ! _lenslark_second_word; }; then
        _lenslark_flags
    fi
    # The shell itself breaks words at colons.
    __ltrim_colon_completions "$cur"
}

complete -F _lenslark lenslark
