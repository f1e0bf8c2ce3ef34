#!/bin/sh
# Follows docs/integration.md in a fresh clone of what is committed: runs the commands of its blocks in
# their order. A folder stands in for the device and a script for adb. This is done once for a device
# with a vendor's list of effects and once for one without. Checks that the effect is installed, and
# that after the document's last step nothing of it is left.
set -eu
project=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "check-integration: $*" >&2; exit 1; }

# An adb whose device is the folder $DEVICE. Paths on the device begin there.
mkdir "$work/bin"
cat >"$work/bin/adb" <<'END'
#!/bin/sh
set -eu
verb=$1
shift
case $verb in
root | logcat) ;;
remount) touch "$DEVICE/remounted" ;;
pull) cp "$DEVICE$1" "$2" ;;
push | shell)
    # For push, the second argument is a path on the device. For shell, every absolute path is one.
    if [ "$verb" = push ]; then
        [ -e "$DEVICE/remounted" ] || { echo "adb: read-only file system" >&2; exit 1; }
        cp "$1" "$DEVICE$2"
        chmod 600 "$DEVICE${2%/}$(case $2 in */) echo "/${1##*/}" ;; esac)"
        exit
    fi
    case $1 in
    stop | start) echo "$*" >>"$DEVICE/services" ;;
    chmod | rm)
        command=$1
        shift
        for word in "$@"; do
            shift
            case $word in /*) word=$DEVICE$word ;; esac
            set -- "$@" "$word"
        done
        "$command" "$@"
        ;;
    *) echo "adb shell: no $1" >&2; exit 1 ;;
    esac
    ;;
*) echo "adb: no $verb" >&2; exit 1 ;;
esac
END
chmod +x "$work/bin/adb"

git clone -q "$project" "$work/clone"
cd "$work/clone"
# Writes each block of commands to a file of its own.
awk -v work="$work" '/^```sh$/ { inside = 1; ++block; next }
    /^```$/ { inside = 0 }
    inside { print >(work "/block." block) }' docs/integration.md
[ "$(ls "$work"/block.* | wc -l)" -eq 5 ] || fail "the document hasn't five blocks of commands"
cat "$work/block.1" "$work/block.2" >"$work/build"
cat "$work/block.3" "$work/block.4" >"$work/on"

# make_device OWNER: makes a device with lists of effects, each with one effect. The list of OWNER,
# "system" or "vendor", is in force.
make_device() {
    export DEVICE="$work/$1"
    mkdir -p "$DEVICE/system/lib/soundfx" "$DEVICE/system/etc" "$DEVICE/vendor/etc"
    for owner in system "$1"; do
        printf '%s {\n  %s {\n    %s\n  }\n}\n' libraries bundle 'path /system/lib/soundfx/libb.so' \
            effects "$owner" 'library bundle' >"$DEVICE/$owner/etc/audio_effects.conf"
    done
    chmod 644 "$DEVICE"/*/etc/*
}
files() { (cd "$DEVICE" && find system vendor -type f -printf '%m %p ' -exec sha256sum {} \;); }

sh -eu "$work/build" >"$work/log" 2>&1 || { cat "$work/log"; fail "building"; }
library=libqth_orvane_ics_NOVFP.so
cmp "build/arm-softfloat/android/device/$library" "android/prebuilt/$library" || fail "prebuilt"
[ -z "$(git status --porcelain)" ] || fail "git sees files that building left: $(git status --porcelain)"
for owner in system vendor; do
    make_device "$owner"
    place=$DEVICE/system/lib/soundfx/$library
    list=$DEVICE/$owner/etc/audio_effects.conf
    files >"$work/before"
    rm -rf out
    # All blocks run in one shell, because later blocks use variables of earlier ones.
    { cat "$work/on"; echo "cp -pr '$DEVICE' '$work/$owner-on'"; cat "$work/block.5"; } >"$work/all"
    PATH=$work/bin:$PATH sh -eu "$work/all" >"$work/log" 2>&1 || { cat "$work/log"; fail "$owner"; }
    files >"$work/after"
    diff "$work/before" "$work/after" || fail "$owner: taken off, something else is left"

    on=$work/$owner-on
    cmp "$on${place#"$DEVICE"}" "android/prebuilt/$library" || fail "$owner: not the library"
    for path in "$place" "$list"; do
        [ "$(stat -c %a "$on${path#"$DEVICE"}")" = 644 ] || fail "$owner: $path isn't readable"
    done
    grep -q 'uuid d92c3a90-3e26-11e2-a25f-0800200c9a66' "$on${list#"$DEVICE"}" ||
        fail "$owner: not in the list"
    grep -q "^  $owner {" "$on${list#"$DEVICE"}" || fail "$owner: the platform's own effect is gone"
    [ "$(cat "$on/services")" = "stop media
start media" ] || fail "$owner: the media server hasn't read the list again"
done
echo "check-integration: docs/integration.md works, from a clone to the device and back"
