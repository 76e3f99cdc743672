#!/bin/sh
# usage: KorvelHelper HELPER-ARGUMENT...
#
# Runs the Mac's own program as the helper of a virtual Mac, under an emulator of the Mac's
# processor. A virtual Mac that is started with --tin calls it.
build=$(dirname "$(readlink -f "$0")")/../..
exec qemu-aarch64 -L /usr/aarch64-linux-gnu "$build/tin/TinMac/Glue/tin-mac" \
  "$build/macos-cross/TinMac/Frameworks/libtin_frameworks.dylib" \
  "${TIN_MAC_PROGRAM:-$build/macos-cross/KorvelHelper/macOS/KorvelHelper}" "$@"
