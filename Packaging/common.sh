# The packaging scripts source this file. They run under the bash 3.2 that macOS has.
# shellcheck shell=bash

# Read by the scripts that source this file.
# shellcheck disable=SC2034
label=com.korvel.app.helper
# shellcheck disable=SC2034
appIdentifier=com.korvel.app
# shellcheck disable=SC2034
helperInBundle=Contents/MacOS/KorvelHelper
packaging=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

# A test sets this to install below a directory of its own; otherwise it is empty.
root=${KORVEL_INSTALL_ROOT:-}
program=$root/Library/PrivilegedHelperTools/$label
job=$root/Library/LaunchDaemons/$label.plist
# shellcheck disable=SC2034
stateDirectory="$root/Library/Application Support/$label"
# shellcheck disable=SC2034
jobSource=$packaging/launchd/system/$label.plist

die() {
  printf '%s: %s\n' "$(basename "$0")" "$1" >&2
  exit 1
}

say() {
  printf '%s\n' "$1"
}

# Prints the comment at the head of the calling script, and ends.
showHelp() {
  sed -n '2,/^[^#]/{/^#/!d;s/^# \{0,1\}//;p;}' "$0"
  exit 0
}

mustBeMac() {
  [ "$(uname -s)" = Darwin ] || die "this is not macOS; nothing was done"
}

mustBeRoot() {
  [ "$(id -u)" = 0 ] || die "must be run as root (sudo)"
}

# In a shell that Rosetta translates, uname says x86_64 on every Mac; the kernel's own value stays.
isAppleSilicon() {
  [ "$(uname -m)" = arm64 ] || [ "$(sysctl -n hw.optional.arm64 2>/dev/null)" = 1 ]
}

# Also returns true for a link that leads nowhere.
isThere() {
  [ -e "$1" ] || [ -L "$1" ]
}

isLoaded() {
  launchctl print "system/$label" >/dev/null 2>&1
}

isRunning() {
  # grep must read to the end: with -q it would leave at the match, and launchctl would fail.
  launchctl print "system/$label" 2>/dev/null | grep '^[[:space:]]*state = running' >/dev/null
}

# Refuses a job that launchd did not get from the property list of an installation by hand. For one
# that an application registered, launchd prints another origin. Such a registration outlives all
# that is done here, and after the next restart two helpers would claim one service.
mustBeInstalledByHand() {
  isLoaded || return 0
  local from
  from=$(launchctl print "system/$label" |
    awk '!found && sub(/^[ \t]*path = /, "") { print; found = 1 }')
  [ "$from" = "$job" ] ||
    die "launchd has $label from \"$from\" and not from $job; nothing was changed. If the application \
registered it, let the application unregister it (SMAppService) and run this again; otherwise: \
sudo launchctl bootout system/$label"
}

# Makes sure that the helper runs and will notice a signal. It installs its signal handlers as the
# last step of its start; before that, a signal would end it without restoring anything.
makeRun() {
  if ! isRunning; then
    launchctl kickstart "system/$label" || die "the helper does not start; nothing was removed"
    sleep 3
  fi
}

# Stops the helper with SIGTERM, which makes it restore the hardware, and waits until launchd has
# forgotten the job: while a job is still ending, the next bootstrap would fail.
bootOut() {
  launchctl bootout "system/$label" || true
  local waited=0
  while isLoaded; do
    [ "$waited" -lt 30 ] || die "launchd still has $label after 30 seconds; nothing was removed"
    sleep 1
    waited=$((waited + 1))
  done
}

# Prints the team in a program's signature; nothing when there is none.
teamOf() {
  codesign -dv "$1" 2>&1 | sed -n 's/^TeamIdentifier=//p' | grep -v '^not set$' || true
}

# Prints the identifier in a program's signature.
identifierOf() {
  codesign -dv "$1" 2>&1 | sed -n 's/^Identifier=//p'
}

# Refuses a program that launchd would start but no client could use.
mustBeSigned() {
  codesign --verify --strict "$1" || die "$1 has no valid signature"
  [ "$(identifierOf "$1")" = "$label" ] ||
    die "$1 is signed as \"$(identifierOf "$1")\", not as $label"
  [ -n "$(teamOf "$1")" ] ||
    die "$1 is signed without a team: the helper would turn every client away"
}
