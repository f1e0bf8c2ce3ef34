#!/bin/sh
# Puts the library and its two entries in the list of effects onto a device, or takes them off again.
#
# usage: install.sh [LIBRARY PLACE]     in the project's folder, with the library built
#        install.sh --remove [PLACE]
#
#   LIBRARY  the file to install; without it, the library for Android 4.0 to 4.2
#   PLACE    the library's path on the device
#
# adb of Android 4.0's time reports no status of what runs on the device, and little of its own. So
# every step looks at what it has done. What was copied is copied back and compared. Files, permissions
# and the media server must be seen to be as they should. The status is 0 only if all of that was seen.
# After a failure, correct its cause and run the script again.
#
# The device's lists of effects are kept in out/device, as they were before the last run.
set -eu
library=build/arm-softfloat/android/device/libqth_orvane_ics_NOVFP.so
place=/system/lib/soundfx/libqth_orvane_ics_NOVFP.so
kept=out/device
change=
if [ "${1:-}" = --remove ]; then change=--remove; shift; fi
case $#$change in
0 | 0--remove) ;;
1--remove) place=$1 ;;
2) library=$1 place=$2 ;;
*) sed -n '2,9s/^# \{0,1\}//p' "$0" >&2; exit 2 ;;
esac

fail() { echo "install: $*" >&2; exit 1; }

# answer COMMAND: prints what the command prints on the device.
answer() { adb shell "$1" </dev/null | tr -d '\r'; }

# media COMMAND STATE: starts or stops the media server, and waits at most 10 s until it is in the state.
media() {
    answer "$1 media"
    state='getprop init.svc.media'
    state=$(answer "for i in 1 2 3 4 5 6 7 8 9 10; do [ \$($state) = $2 ] && break; sleep 1; done; $state")
    [ "$state" = "$2" ] || fail "the media server is \"$state\", not \"$2\""
}

# restart: restarts the device, and waits until it has started.
restart() {
    identity='cat /proc/sys/kernel/random/boot_id'
    before=$(answer "$identity")
    [ "$before" ] || fail "the device doesn't identify its start"
    adb reboot || true
    tries=0
    until now=$(answer "$identity"); [ "$now" ] && [ "$now" != "$before" ] &&
        [ "$(answer 'getprop sys.boot_completed')" = 1 ]; do
        tries=$((tries + 1))
        [ "$tries" -lt 100 ] || fail "the device hasn't started again in five minutes"
        sleep 3
    done
}

# is_there PATH: succeeds if the device has the file. The script ends if the device doesn't say.
is_there() {
    case $(answer "if [ -e $1 ]; then echo present; else echo absent; fi") in
    present) ;;
    absent) return 1 ;;
    *) fail "the device doesn't say whether it has $1; is it connected (adb devices)?" ;;
    esac
}

# fetch PATH FILE: copies a file from the device.
fetch() {
    rm -f "$2"
    adb pull "$1" "$2" || true
    [ -s "$2" ] || fail "can't copy $1 from the device"
}

# store FILE PATH: puts a file at its place on the device, readable for everybody. It has another name
# until all of it is there, so that a failure leaves the file from before.
store() {
    adb push "$1" "$2.new" || true
    fetch "$2.new" out/copy
    cmp "$1" out/copy || fail "$2.new on the device is not what was copied to it"
    answer "chmod 644 $2.new"
    case $(answer "ls -l $2.new") in
    -rw-r--r--*) ;;
    *) fail "$2.new can't be made readable for everybody" ;;
    esac
    answer "mv $2.new $2"
    if is_there "$2.new"; then fail "$2.new can't be renamed"; fi
    # Where files have SELinux labels, the file gets the one of its place.
    case $(answer "[ ! -x /system/bin/restorecon ] || restorecon $2 && echo labelled") in
    *labelled) ;;
    *) fail "$2 can't get the label of its place" ;;
    esac
    verify "$1" "$2"
}

# verify FILE PATH: compares a file with the one on the device.
verify() {
    fetch "$2" out/copy
    cmp "$1" out/copy || fail "$2 on the device is another file"
}

if [ -z "$change" ]; then
    [ -s "$library" ] || fail "$library isn't built"
fi
rm -rf "$kept"
mkdir -p "$kept/system/etc" "$kept/vendor/etc"
echo "install: waiting for the device"
adb root || true
adb wait-for-device # as root, the device's side of adb starts anew
adb remount || true
for list in /system/etc/audio_effects.conf /vendor/etc/audio_effects.conf /vendor/etc/audio_effects.xml; do
    is_there $list || continue
    # Twice, because nothing else says whether it came whole.
    fetch $list "$kept$list"
    fetch $list out/copy
    cmp "$kept$list" out/copy || fail "$list came in two versions"
done

# shellcheck disable=SC2086  # no word or one
list=$(android/merge_audio_effects.py $change --library "$place" "$kept" out/audio_effects)
# At no time does the list name a file that isn't there.
if [ -z "$change" ]; then
    store "$library" "$place"
    store out/audio_effects "$list"
else
    store out/audio_effects "$list"
    answer "rm $place $place.new"
    for file in "$place" "$place.new"; do
        if is_there "$file"; then fail "$file is still there"; fi
    done
fi

# The media server reads the list when it starts. Since Android 7, several services share its work.
case $(answer 'if [ "$(getprop init.svc.audioserver)" ]; then echo several; else echo one; fi') in
one)
    media stop stopped
    media start running ;;
several)
    restart
    verify out/audio_effects "$list"
    [ "$change" ] || verify "$library" "$place" ;;
*) fail "the device doesn't say which services it has" ;;
esac
if [ -z "$change" ]; then
    echo "install: done; $list names the effect"
else
    echo "install: done; neither $place nor its entries in $list are left"
fi
