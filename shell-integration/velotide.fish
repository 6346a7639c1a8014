# Tells a hosting terminal session which command lines run in this fish, where
# and with what result, by marks that terminals do not display. Made to be
# sourced, after the user's own start-up files, by fish 3.1 and later.

if status is-interactive; and test -n "$VELOTIDE_AGENT_CONTEXT"; and test -t 1
    and not functions -q __velotide_starts

    # The bytes of a text as hexadecimal digits.
    function __velotide_hex
        # Bytes that were no UTF-8 live in a private range.
        set -l text (string replace -ra '[\x{F600}-\x{F6FF}]' '?' -- $argv[1] | string collect)
        set -l bytes (string match -ra '%..|.' -- (string escape --style=url -- $text))
        if set -q bytes[1]
            # printf takes the code of a character behind a quote for a number.
            printf '%02x' (string replace -r '^(.)$' '\'$1' -- $bytes | string replace -r '^%' 0x)
        end
    end

    function __velotide_mark
        printf '\e]777;Velotide;%s\e\\\\' $argv
    end

    # The marks for shell and place.
    function __velotide_place --on-event fish_prompt
        if test "$PWD" != "$__velotide_directory"
            set -g __velotide_directory $PWD
            set -g __velotide_directory_hex (__velotide_hex $PWD)
        end
        __velotide_mark shell=fish "context=$__velotide_directory_hex,$__velotide_fixed_context"
    end

    # Also where all there is is comments.
    function __velotide_is_blank
        not string match -qr '(?m)^\s*[^\s#]' -- $argv[1]
    end

    function __velotide_starts --on-event fish_preexec
        __velotide_is_blank $argv[1]
        and return
        set -l hex (__velotide_hex $argv[1])
        if test (string length -- "$hex") -gt 32000
            # So that the mark stays below 32,768 bytes: cut, and without the
            # last character, which the cut may have split.
            set hex (string sub -l 32000 -- $hex | string replace -r '(?:[c-f].)?(?:[89ab].){0,3}$' '')
        end
        __velotide_place
        __velotide_mark start="$hex"
    end

    function __velotide_ends --on-event fish_postexec
        set -l code $status
        __velotide_is_blank $argv[1]
        or __velotide_mark end=$code
    end

    set -g __velotide_directory ''
    set -g __velotide_directory_hex ''
    set -l user (__velotide_hex "$USER")
    set -l host (__velotide_hex "$hostname")
    set -g __velotide_fixed_context "$user,"(id -u)",$host,"(__velotide_hex fish)
end
