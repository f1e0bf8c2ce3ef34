#!/bin/sh
# Checks that docs/integration.md explains every line that the library logs, for readers of a device's
# log. Each text in host/ or unit/ that holds a space and begins with a capital or % is such a line.
#   log_lines_test.sh PROJECT_FOLDER
cd "$1" || exit 1
lines=$(sed 's,//.*,,' host/*.cpp unit/*.cpp | grep -o '"[A-Z%][^"]* [^"]*"' | tr -d '"' | sed 's/^%s//')
[ "$(echo "$lines" | wc -l)" -ge 30 ] || { echo "too few log lines found"; exit 1; }
unexplained=$(echo "$lines" | while read -r line; do
  grep -qF "$line" docs/integration.md || echo "$line"
done)
[ -z "$unexplained" ] || { echo "not explained: $unexplained"; exit 1; }
