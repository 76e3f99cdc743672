#!/bin/sh
# usage: KorvelHelper HELPER-ARGUMENT...
#        korvel-client CLIENT-ARGUMENT...
#
# Runs one of the Mac's own programs on a virtual Mac, under an emulator of the Mac's processor: its
# helper, which a virtual Mac that is started with --tin calls, or the sample client, which
# "virtual-mac launch -- korvel-client COMMAND..." calls.
# With TIN_MAC_LINES the emulator writes the helper's code that is reached into that folder, one
# file for each process; script/tin-mac-lines reads them. With TIN_MAC_COUNTS it also writes, in that
# folder, each run of a piece of code, which script/tin-mac-counts reads.
build=$(dirname "$(readlink -f "$0")")/../..
if [ "$(basename "$0")" = korvel-client ]; then
  loader=tin-mac-client
  program=${TIN_MAC_CLIENT:-$build/macos-cross/Packaging/korvel-client}
else
  loader=tin-mac
  program=${TIN_MAC_PROGRAM:-$build/macos-cross/KorvelHelper/macOS/KorvelHelper}
  logs=${TIN_MAC_COUNTS:-${TIN_MAC_LINES:-}}
  if [ -n "$logs" ]; then
    # The program lies where Launch.cpp puts it.
    export QEMU_LOG="in_asm${TIN_MAC_COUNTS:+,exec,nochain}" QEMU_LOG_FILENAME="$logs/%d.log"
    export QEMU_DFILTER=0x6000000000+0x1000000
  fi
fi
exec qemu-aarch64 -L /usr/aarch64-linux-gnu "$build/tin/TinMac/Glue/$loader" \
  "$build/macos-cross/TinMac/Frameworks/libtin_frameworks.dylib" "$program" "$@"
