#!/bin/sh
# Follows docs/integration.md in a fresh clone of what is committed: runs the commands of its blocks in
# their order. A folder stands in for the device and a script for adb. This is done for three devices: one
# with a vendor's list of effects, one without, and one of Android 8 to 13. Checks that the effect is
# installed, also if that is done twice, and that after the document's last step nothing of it is left. Then
# each call of adb fails in turn, which must be noticed. At last orvane-check checks the library, under
# emulation.
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
reboot)
    echo reboot >>"$DEVICE/services"
    echo another >>"$DEVICE/proc/sys/kernel/random/boot_id" ;;
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
    command=$(echo "$*" | sed "s#/\(system\|vendor\|data\|proc\)/#$DEVICE&#g")
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
case $1 in
sys.boot_completed) echo 1 ;;
init.svc.audioserver) [ ! -e "$DEVICE/system/bin/restorecon" ] || echo running ;;
*) [ "$(tail -n 1 "$DEVICE/services" 2>/dev/null)" = "stop media" ] && echo stopped || echo running ;;
esac
END
cat >"$work/device-bin/restorecon" <<'END'
#!/bin/sh
echo "$1" >>"$DEVICE/labels"
END
printf '#!/bin/sh\n' >"$work/device-bin/sleep"
cp "$work/device-bin/sleep" "$work/bin"
chmod +x "$work"/bin/* "$work"/device-bin/*

git clone -q "$project" "$work/clone"
cd "$work/clone"
# Writes each block of commands to a file of its own.
awk -v work="$work" '/^```sh$/ { inside = 1; ++block; next }
    /^```$/ { inside = 0 }
    inside { print >(work "/block." block) }' docs/integration.md
[ "$(ls "$work"/block.* | wc -l)" -eq 8 ] || fail "the document hasn't eight blocks of commands"
cat "$work/block.1" "$work/block.2" >"$work/build"

# make_device OWNER: makes a device with lists of effects, each with one effect. The list of OWNER,
# "system", "vendor" or "later", is in force. "later" is the vendor's list in XML.
make_device() {
    export DEVICE="$work/$1"
    mkdir -p "$DEVICE/data/local/tmp" "$DEVICE/system/lib/soundfx" "$DEVICE/system/etc" "$DEVICE/vendor/etc"
    mkdir -p "$DEVICE/$1/etc"
    for owner in system "$1"; do
        printf '%s {\n  %s {\n    %s\n  }\n}\n' libraries bundle 'path /system/lib/soundfx/libb.so' \
            effects "$owner" 'library bundle' >"$DEVICE/$owner/etc/audio_effects.conf"
    done
    if [ "$1" = later ]; then
        rm -r "$DEVICE/later"
        mkdir -p "$DEVICE/vendor/lib64/soundfx" "$DEVICE/system/bin" "$DEVICE/proc/sys/kernel/random"
        touch "$DEVICE/system/bin/restorecon" "$DEVICE/proc/sys/kernel/random/boot_id"
        chmod +x "$DEVICE/system/bin/restorecon"
        echo first >"$DEVICE/proc/sys/kernel/random/boot_id"
        cp "$work/list.xml" "$DEVICE/vendor/etc/audio_effects.xml"
    fi
    chmod 644 "$DEVICE"/*/etc/*
}
cat >"$work/list.xml" <<'END'
<audio_effects_conf version="2.0">
  <libraries>
    <library name="bundle" path="libb.so"/>
  </libraries>
  <effects>
    <effect name="later" library="bundle" uuid="8631f300-72e2-11df-b57e-0002a5d5c51b"/>
  </effects>
</audio_effects_conf>
END
run() { PATH=$work/bin:$PATH sh -eu "$1" >"$work/log" 2>&1; }
files() { (cd "$DEVICE" && find system vendor -type f -printf '%m %p ' -exec sha256sum {} \;); }

sh -eu "$work/build" >"$work/log" 2>&1 || { cat "$work/log"; fail "building"; }
library=libqth_orvane_ics_NOVFP.so
cmp "build/arm-softfloat/android/device/$library" "android/prebuilt/$library" || fail "prebuilt"
[ -z "$(git status --porcelain)" ] || fail "git sees files that building left: $(git status --porcelain)"

# follow OWNER INSTALL REMOVE FILE PLACE LIST SERVICES: follows the blocks INSTALL, twice, and REMOVE on a
# new device. FILE must then have been at PLACE, and LIST must have had its entries beside the others.
# Keeps the device with the effect in the folder $on.
follow() {
    make_device "$1"
    files >"$work/before"
    for step in "$2" "$2" "$3"; do
        run "$work/block.$step" || { cat "$work/log"; fail "$1, block $step"; }
        [ "$step" = "$3" ] && break
        on=$work/$1-on
        rm -rf "$on"
        cp -pr "$DEVICE" "$on"
        files >"$work/installed"
        rm "$DEVICE/services"
    done
    files >"$work/after"
    diff "$work/before" "$work/after" || fail "$1: taken off, something else is left"

    cmp "$on$5" "$4" || fail "$1: not the library"
    for path in "$5" "$6"; do
        [ "$(stat -c %a "$on$path")" = 644 ] || fail "$1: $path isn't readable"
    done
    grep -Eq 'uuid( |=")d92c3a90-3e26-11e2-a25f-0800200c9a66' "$on$6" || fail "$1: not in the list"
    grep -Eq "^  $1 {|name=\"$1\"" "$on$6" || fail "$1: the platform's own effect is gone"
    [ "$(tr '\n' ' ' <"$on/services")" = "$7" ] || fail "$1: the media server hasn't read the list again"
}

# fail_each OWNER INSTALL [REMOVE]: one call of adb fails. Either the script says so, or everything is as it
# should be. If it says so, the same script completes the work afterwards.
fail_each() {
    for step in "$2:installed" ${3:+"$3:before"}; do
        calls=100 call=0 noticed=0
        while [ "$call" -lt "$calls" ]; do
            call=$((call + 1))
            rm -rf "$DEVICE"
            if [ "$step" = "$2:installed" ]; then make_device "$1"; else cp -pr "$on" "$DEVICE"; fi
            rm -f "$DEVICE/calls" "$DEVICE/services" "$DEVICE/remounted" "$DEVICE/labels"
            export FAULTY="$call"
            if run "$work/block.${step%:*}"; then
                calls=$(wc -l <"$DEVICE/calls")
            else
                noticed=$((noticed + 1))
                unset FAULTY
                run "$work/block.${step%:*}" || { cat "$work/log"; fail "can't be repeated after $call"; }
            fi
            files | diff "$work/${step#*:}" - || fail "block ${step%:*}: a fault in call $call unnoticed"
            grep -Eq 'start|reboot' "$DEVICE/services" ||
                fail "block ${step%:*}: no start after a fault in call $call"
            [ "$1" != later ] || grep -q "/audio_effects.xml" "$DEVICE/labels" ||
                fail "block ${step%:*}: no label after a fault in call $call"
        done
        [ "$noticed" -gt 10 ] || fail "block ${step%:*}: only $noticed faults were noticed"
        echo "check-integration: block ${step%:*}: $noticed of $calls faults end it, the others do no harm"
    done
}

for owner in system vendor; do
    follow "$owner" 3 4 "android/prebuilt/$library" "/system/lib/soundfx/$library" \
        "/$owner/etc/audio_effects.conf" "stop media start media "
done
fail_each vendor 3 4

# The libraries for later devices were built and tested before. Here it is only seen that the commands
# name what can be built.
sed 's/cmake --build .*/& -- -n/' "$work/block.5" >"$work/build"
sh -eu "$work/build" >"$work/log" 2>&1 || { cat "$work/log"; fail "block 5"; }
later=build/aarch64/android/device/libqth_orvane.so
mkdir -p "${later%/*}"
cp "$project/$later" "$later" || fail "build the preset device-arm64-v8a first"
follow later 6 7 "$later" /vendor/lib64/soundfx/libqth_orvane.so /vendor/etc/audio_effects.xml "reboot "
fail_each later 6 # block 7 takes the same steps

# orvane-check passes on a device without root.
unset FAULTY
rm -rf "$work/system"
make_device system
export EMULATED="$work/clone/build/arm-softfloat/android/emulated"
cmake --build build/arm-softfloat --target emulated_log >/dev/null
run "$work/block.8" || { cat "$work/log"; fail "block 8"; }
[ "$(tail -n 1 "$work/log" | tr -d '\r')" = PASSED ] || { cat "$work/log"; fail "orvane-check hasn't passed"; }
[ ! -e "$DEVICE/remounted" ] || fail "block 8 needs root"
[ "$(ls "$DEVICE/data/local/tmp")" = orvane-check-4.0.arm ] || fail "block 8 leaves something"
echo "check-integration: docs/integration.md works, from a clone to the device and back"
