# Scripts that try something in a new Debian system source this file after common.sh.
# shellcheck shell=bash
# shellcheck disable=SC2154  # common.sh sets root

# Prints the sources of this machine that are Debian's own, so that the new system has its mirror.
debianSources() {
  # shellcheck disable=SC2016  # apt-get fills these in
  apt-get indextargets 'Created-By: Packages' 'Origin: Debian' \
    --format 'deb [signed-by=/usr/share/keyrings/debian-archive-keyring.gpg] $(REPO_URI) $(RELEASE) $(COMPONENT)' |
    sort -u
}

# makeCleanRoot FOLDER: makes a Debian 12 with the least that apt needs, and this machine's way to
# the mirror.
makeCleanRoot() {
  local sources options
  ((EUID == 0)) || die "a Debian root of its own can be made by root alone; run it as root"
  command -v mmdebstrap >/dev/null || die "mmdebstrap is missing; script/bootstrap mmdebstrap installs it"
  sources=$(debianSources)
  [[ -n $sources ]] || die "apt has no list of Debian's packages; is this a Debian, and did apt-get update work?"
  options=$(mktemp)
  apt-config dump | grep -E '^Acquire::(http|https|Check-Valid-Until|Check-Date)\b.*"' >"$options" || true
  say "A new Debian 12 in $1"
  if ! mmdebstrap --quiet --variant=minbase --aptopt="$options" bookworm "$1" - <<<"$sources"; then
    rm -f "$options"
    die "the new Debian could not be made; is the mirror within reach?"
  fi
  rm -f "$options"
}

# inRoot FOLDER COMMAND...: runs a command as root of that system. Mounts and processes are the
# command's own, and none outlives it.
inRoot() {
  # shellcheck disable=SC2016  # the inner shell fills these in
  unshare --mount --pid --fork --kill-child bash -c '
    set -e
    mount -t proc proc "$1/proc"
    mount --rbind /dev "$1/dev"
    [[ ! -d $1/ccache ]] || mount --bind "$2" "$1/ccache"
    exec env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root \
      LANG=C.UTF-8 DEBIAN_FRONTEND=noninteractive TERM=dumb "${@:3}"' \
    inRoot "$1" "$(ccache -k cache_dir 2>/dev/null)" chroot "$@"
}

# everyFile FOLDER: names all that the system has, but for records, caches and what the kernel keeps.
everyFile() {
  find "$1" -xdev \( -path "$1/var/log" -o -path "$1/var/cache" -o -path "$1/var/lib/apt" \
    -o -path "$1/var/lib/dpkg" -o -path "$1/dev" -o -path "$1/proc" \) -prune -o -printf '/%P\n' | sort
}
