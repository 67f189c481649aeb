#!/bin/sh
# Installs into a scratch prefix, moves the prefix, and renders from another
# folder with the moved program: libraries and plug-ins must be found relative
# to the install, never in the build tree.
#   MovedInstall_test.sh CMAKE BUILD_DIR
set -eu
cmake=$1
build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$cmake" --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/moved"
mkdir "$work/elsewhere"
cd "$work/elsewhere"
unset LUMIVANE_PLUGIN_PATH
program="$work/moved/bin/lumivane"
module="$work/moved/lib/lumivane/plugins/Lumivane2.plugin"
"$program" kernel k.exr --size 5 --width 64 --height 48 >/dev/null
"$program" render k.exr out.exr --unit absolute --size 3 -v >log
grep -qF "plug-in module $module" log || { cat log; echo "the moved install did not load its own plug-in"; exit 1; }
test -s out.exr
# Other formats go through the image file module installed beside the host library.
LD_DEBUG=files "$program" render out.exr out.png --unit absolute --size 3 2>loads >/dev/null
test -s out.png
grep -qF "$(cd "$work/moved" && pwd -P)/lib/lumivane/lumivane-oiio.so" loads ||
  { grep -F lumivane-oiio loads; echo "the moved install did not load its own image file module"; exit 1; }
if ldd "$program" "$module" | grep -e "not found" -e "$build"; then
  echo "the moved install needs libraries it does not carry"
  exit 1
fi
