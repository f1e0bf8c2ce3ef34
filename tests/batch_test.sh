#!/bin/bash
# Follows docs/batch.md: runs its lines over two hundred short files, interrupts them half-way and
# resumes them. Then runs them on two "machines", which are folders here.
#   batch_test.sh PROGRAM
set -euo pipefail
page=$(dirname "$(realpath "$0")")/../docs/batch.md
PATH=$(dirname "$1"):$PATH
here=$(mktemp -d)
trap 'rm -rf "$here"' EXIT
export HOME=$here
for tool in parallel rsync; do
  command -v $tool >/dev/null || { echo "skipped: no $tool"; exit 0; }
done
# Prints the page's Nth block of shell lines.
block() { awk -v n="$1" '/^```sh/ {i++; on = 1; next} /^```/ {on = 0} on && i == n' "$page"; }
fail() { echo "batch_test: $*"; exit 1; }

evil="it's \"ü\""  # used in names of folders and files
mkdir -p "$here/music/$evil" "$here/music/b"
cd "$here/music"
perl -e 'print pack("A4VA4A4VvvVVvvA4V", "RIFF", 30036, "WAVE", "fmt ", 16, 1, 1, 48000, 96000, 2, 16,
  "data", 30000), map { pack "s<", rand 9999 } 1 .. 15000' | orvane render -q - source.flac
for n in {1..100}; do cp source.flac "$evil/$n.flac"; cp source.flac "b/$n $evil.flac"; done
mv source.flac ..
mv "b/100 $evil.flac" "b/1 $evil.FLAC"
mv "b/7 $evil.flac" b/spare
echo broken >"b/7 $evil.flac"
found() { find ../out -name "$1" 2>/dev/null | wc -l; }

set -m
(exec 9>"$here/lock"; flock 9; block 1 | sed '/^cd/d' | bash) 2>/dev/null &
for try in {1..600}; do [ "$(found '[!.]*.opus')" -lt 60 ] || break; sleep 0.05; done
kill -INT -- -$!
wait $! 2>/dev/null && fail "was not cut off"
set +m
flock "$here/lock" true  # the jobs have their own process groups and end with a delay
some=$(found '[!.]*.opus')
[ "$some" -ge 60 ] && [ "$some" -lt 199 ] || fail "$some files when cut off"

status=0
block 1 | sed '/^cd/d' | bash 2>err || status=$?
[ $status = 1 ] || fail "$status files failed, for one that is broken"
grep -c '^orvane: ' err | grep -qx 1
[ "$(found '[!.]*.opus')" = 199 ] || fail "$(found '[!.]*.opus') files after resuming"
mv b/spare "b/7 $evil.flac"
block 2 | bash
[ "$(found '[!.]*.opus')" = 200 ] || fail "$(found '[!.]*.opus') files after the broken one was mended"
[ "$(find ../out -name '[!.]*.opus' -printf '%s\n' | sort -u | wc -l)" = 1 ] || fail "some are not whole"

# A replacement of ssh: each machine is a home folder.
cat >"$here/ssh" <<'SSH'
#!/bin/bash
while [[ $1 == -* ]]; do shift; done
mkdir -p "$HOME/$1" && cd "$HOME/$1" && shift
[[ $1 != -- ]] || shift
SHELL=/bin/bash exec bash -c "$*"
SSH
chmod +x "$here/ssh"
export PARALLEL_SSH=$here/ssh
rm -r "$evil" b/[1-9][0-9]*.flac ../jobs
[ "$(block 4 | bash | wc -l)" = 10 ] || fail "some results are there before they are made"
block 3 | sed 's/,: / /' | bash
[ -z "$(block 4 | bash)" ] || fail "the machines left out $(block 4 | bash | wc -l)"
[ "$(find . -name '*-night.opus' | wc -l)" = 10 ] || fail "the machines gave $(find . -name '*.opus' | wc -l)"
[ "$(cut -f 2 ../jobs | sort -u | grep -c 'alpha\|beta')" = 2 ] || fail "not all machines worked"
[ -z "$(find ../alpha ../beta -type f)" ] || fail "the machines keep files"

# Albums: one is in two disc folders, one has a name with characters that a shell interprets.
rm -r -- ./* ../out
mkdir -p "it's one/CD1" "it's one/CD 2" "ä & b"
for folder in "it's one/CD1" "it's one/CD 2" "ä & b"; do cp ../source.flac "$folder/1.FLAC"; done
echo broken >"ä & b/2.flac"
album() { sed -n '/^## Albums/,$p' "$page" | awk '/^```sh/ {on = 1; next} /^```/ {exit} on' | sed '/^cd/d' | bash; }
album 2>err && fail "a broken track went unnoticed"
grep -q "ä & b/2.flac" err || fail "the broken track is not named: $(cat err)"
[ "$(cd ../out && find . -type f | sort | tr '\n' ' ')" = "./it's one/CD 2/1.opus ./it's one/CD1/1.opus " ] ||
  fail "albums gave $(find ../out)"
rm "ä & b/2.flac"
album 2>err || fail "albums failed: $(cat err)"
[ "$(find ../out -name '*.opus' | wc -l)" = 3 ] || fail "albums gave $(find ../out)"
