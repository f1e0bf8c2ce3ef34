#!/bin/sh
# Follows docs/integration.md in a fresh clone of what is committed: runs the commands of its blocks in
# their order. A folder stands in for the device and a script for adb. This is done once for a device
# with a vendor's list of effects and once for one without. Checks that the effect is installed, also if
# that is done twice, and that after the document's last step nothing of it is left. Then each call of
# adb fails in turn, which must be noticed. At last orvane-check checks the library, under emulation.
set -eu
project=$(cd "$(dirname "$0")/.." && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "check-integration: $*" >&2; exit 1; }

# An adb whose device is the folder $DEVICE. Paths on the device begin there. Like an adb of Android 4.0's
# time, it says in its status nothing about the device, and its shell ends lines with \r\n. Call number
# $FAULTY finds the device offline, or copies only the beginning of its file.
mkdir "$work/bin" "$work/device-bin"
cat >"$work/bin/adb" <<'END'
#!/bin/sh
set -eu
echo "$1" >>"$DEVICE/calls"
cut=
if [ "$(wc -l <"$DEVICE/calls")" = "${FAULTY:-}" ]; then
    case $1 in
    pull | push) cut=yes ;;
    *) echo "error: device offline" >&2; exit 0 ;;
    esac
fi
copy() { if [ "$cut" ]; then head -c 90 "$1" >"$2"; else cp "$1" "$2"; fi; }
verb=$1
shift
case $verb in
root | wait-for-device | logcat) ;;
remount) touch "$DEVICE/remounted" ;;
pull)
    if [ -e "$DEVICE$1" ]; then copy "$DEVICE$1" "$2"; else echo "remote object '$1' does not exist" >&2; fi ;;
push)
    if [ -e "$DEVICE/remounted" ] || [ "${2#/data/local/tmp/}" != "$2" ]; then
        copy "$1" "$DEVICE$2"
        case $2 in
        */orvane-check*) # a program of the device, for the emulator
            mv "$DEVICE$2" "$DEVICE$2.arm"
            echo 'LD_LIBRARY_PATH=$EMULATED qemu-arm -L "$EMULATED" "$0.arm" "$@" 2>/dev/null' >"$DEVICE$2" ;;
        esac
        chmod 600 "$DEVICE$2"
    else
        echo "failed to copy '$1' to '$2': Read-only file system" >&2
    fi ;;
shell)
    command=$(echo "$*" | sed "s#/\(system\|vendor\|data\)/#$DEVICE&#g")
    { PATH=$(dirname "$0")/../device-bin:$PATH sh -c "$command" 2>&1 || true; } | sed 's/$/\r/' ;;
*) echo "adb: no $verb" >&2 ;;
esac
exit 0
END
cat >"$work/device-bin/stop" <<'END'
#!/bin/sh
echo "${0##*/} $1" >>"$DEVICE/services"
END
cp "$work/device-bin/stop" "$work/device-bin/start"
cat >"$work/device-bin/getprop" <<'END'
#!/bin/sh
[ "$(tail -n 1 "$DEVICE/services" 2>/dev/null)" = "stop media" ] && echo stopped || echo running
END
printf '#!/bin/sh\n' >"$work/device-bin/sleep"
chmod +x "$work/bin/adb" "$work"/device-bin/*

git clone -q "$project" "$work/clone"
cd "$work/clone"
# Writes each block of commands to a file of its own.
awk -v work="$work" '/^```sh$/ { inside = 1; ++block; next }
    /^```$/ { inside = 0 }
    inside { print >(work "/block." block) }' docs/integration.md
[ "$(ls "$work"/block.* | wc -l)" -eq 5 ] || fail "the document hasn't five blocks of commands"
cat "$work/block.1" "$work/block.2" >"$work/build"

# make_device OWNER: makes a device with lists of effects, each with one effect. The list of OWNER,
# "system" or "vendor", is in force.
make_device() {
    export DEVICE="$work/$1"
    mkdir -p "$DEVICE/data/local/tmp" "$DEVICE/system/lib/soundfx" "$DEVICE/system/etc" "$DEVICE/vendor/etc"
    for owner in system "$1"; do
        printf '%s {\n  %s {\n    %s\n  }\n}\n' libraries bundle 'path /system/lib/soundfx/libb.so' \
            effects "$owner" 'library bundle' >"$DEVICE/$owner/etc/audio_effects.conf"
    done
    chmod 644 "$DEVICE"/*/etc/*
}
run() { PATH=$work/bin:$PATH sh -eu "$1" >"$work/log" 2>&1; }
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
    for step in 3 3 4; do
        run "$work/block.$step" || { cat "$work/log"; fail "$owner, block $step"; }
        [ "$step" = 4 ] && break
        rm -rf "$work/$owner-on"
        cp -pr "$DEVICE" "$work/$owner-on"
        files >"$work/installed"
        rm "$DEVICE/services"
    done
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

# One call of adb fails. Either the script says so, or everything is as it should be. If it says so, the
# same script completes the work afterwards.
for step in 3:installed 4:before; do
    calls=100 call=0 noticed=0
    while [ "$call" -lt "$calls" ]; do
        call=$((call + 1))
        rm -rf "$DEVICE"
        if [ "$step" = 3:installed ]; then make_device "$owner"; else cp -pr "$on" "$DEVICE"; fi
        rm -f "$DEVICE/calls" "$DEVICE/services" "$DEVICE/remounted"
        export FAULTY="$call"
        if run "$work/block.${step%:*}"; then
            calls=$(wc -l <"$DEVICE/calls")
        else
            noticed=$((noticed + 1))
            unset FAULTY
            run "$work/block.${step%:*}" || { cat "$work/log"; fail "can't be repeated after $call"; }
        fi
        files | diff "$work/${step#*:}" - || fail "block ${step%:*}: a fault in call $call unnoticed"
        grep -q start "$DEVICE/services" || fail "block ${step%:*}: no start after a fault in call $call"
    done
    [ "$noticed" -gt 10 ] || fail "block ${step%:*}: only $noticed faults were noticed"
    echo "check-integration: block ${step%:*}: $noticed of $calls faults end it, the others do no harm"
done

# orvane-check passes on a device without root.
unset FAULTY
rm -rf "$work/system"
make_device system
export EMULATED="$work/clone/build/arm-softfloat/android/emulated"
cmake --build build/arm-softfloat --target emulated_log >/dev/null
run "$work/block.5" || { cat "$work/log"; fail "block 5"; }
[ "$(tail -n 1 "$work/log" | tr -d '\r')" = PASSED ] || { cat "$work/log"; fail "orvane-check hasn't passed"; }
[ ! -e "$DEVICE/remounted" ] || fail "block 5 needs root"
[ "$(ls "$DEVICE/data/local/tmp")" = orvane-check-4.0.arm ] || fail "block 5 leaves something"
echo "check-integration: docs/integration.md works, from a clone to the device and back"
