#!/bin/sh
# Checks that docs/integration.md explains every line that the library logs, for readers of a device's
# log.
#   log_lines_test.sh PROJECT_FOLDER
cd "$1" || exit 1
lines=$(sed -n 's/.*LogInfo("\([^"]*\)".*/\1/p' host/*.cpp unit/*.cpp)
[ "$(echo "$lines" | wc -l)" -eq "$(cat host/*.cpp unit/*.cpp | grep -c 'LogInfo(')" ] ||
  { echo "a log line that this test can't read"; exit 1; }
unexplained=$(echo "$lines" | while read -r line; do
  grep -qF "$line" docs/integration.md || echo "$line"
done)
[ -z "$unexplained" ] || { echo "not explained: $unexplained"; exit 1; }
