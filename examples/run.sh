#!/bin/sh
# run.sh DIRECTORY WORK: runs the built examples of DIRECTORY and compares their results.
set -eu
examples=$1
work=$2
rm -rf "$work"
mkdir -p "$work"
cd "$work"
awk 'BEGIN { for (i = 0; i < 900000; ++i) print "line", i }' >text
mkdir folder
printf 'the first\n' >folder/first
cp text folder/second
printf 'the third\n' >folder/third
tar -cf folder.tar folder

"$examples/buffer" text | grep -q ' restored$'
"$examples/progress" text text.qrx 2>log
grep -q '100 %' log
"$examples/range" text.qrx 5000000 3000000 >range
dd if=text bs=1000000 skip=5 count=3 2>/dev/null | cmp - range
# A pipe has no size, and damage doesn't hide the bytes before it.
cat text | "$examples/progress" /dev/stdin piped.qrx 2>log
"$examples/range" piped.qrx 0 99999999 | cmp - text
: | "$examples/progress" /dev/stdin empty.qrx 2>log
"$examples/range" empty.qrx 0 1 | cmp - /dev/null
head -c $(($(wc -c <text.qrx) - 5)) text.qrx >cut.qrx
if "$examples/range" cut.qrx 8000000 99999999 >range 2>log; then exit 1; fi
test "$(wc -c <range)" -gt 0
cmp -n "$(wc -c <range)" -i 8000000:0 text range
"$examples/progress" folder.tar folder.tar.qrx 2>log
"$examples/tar_member" folder.tar.qrx folder/third | cmp - folder/third
"$examples/tar_member" folder.tar.qrx folder/second | cmp - folder/second
if "$examples/tar_member" folder.tar.qrx folder/fourth 2>log; then exit 1; fi
grep -q 'no such member' log
if "$examples/range" text 0 1 2>log; then exit 1; fi
grep -q 'not a .qrx file' log
echo "all examples run"
