#!/usr/bin/env bash
# Adds a user to an ocni-netconfd users file: make-users.sh NAME [FILE] (default ./users).
# The password is read from the terminal (or standard input) and stored as a SHA-512 crypt hash.
set -euo pipefail
name=${1:?usage: make-users.sh NAME [FILE]}
file=${2:-users}
case $name in *:*|"") echo "make-users.sh: a name holds no ':'" >&2; exit 2;; esac
if [ -t 0 ]; then read -r -s -p "password for $name: " pw; echo >&2; else read -r pw; fi
[ -n "$pw" ] || { echo "make-users.sh: empty password" >&2; exit 2; }
hash=$(printf '%s' "$pw" | openssl passwd -6 -stdin)
umask 077
touch "$file"
grep -v "^$name:" "$file" > "$file.new" || true
echo "$name:$hash" >> "$file.new" && mv "$file.new" "$file"
echo "$name added to $file" >&2
