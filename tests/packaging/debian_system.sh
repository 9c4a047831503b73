# SPDX-License-Identifier: MIT
# Debian systems to try things in, which only root can make and enter. To be sourced.

fail() {
  printf 'FAILED: %s\n' "$*" >&2
  exit 1
}

# need_root: ends with 77 unless root runs this.
need_root() {
  [ "$(id -u)" = 0 ] || {
    echo 'Skipped: only root can make a Debian system and enter it'
    exit 77
  }
}

# find_mirror: sets `suite` to this machine's release of Debian, and `mirror` to where its
# apt has it from.
find_mirror() {
  suite=$(. /etc/os-release && echo "${VERSION_CODENAME-}")
  # What has not been fetched yet has no code name and no origin.
  mirror=$(apt-get indextargets \
    --format '$(RELEASE) $(COMPONENT) $(REPO_URI) $(CODENAME) $(ORIGIN)' 'Created-By: Packages' |
    awk -v suite="$suite" '
      $2 == "main" && ($1 == suite || $4 == suite) && (NF < 5 || $5 == "Debian") && !found++ {
        print $3
      }')
  [ -n "$mirror" ] || fail "no source of apt has Debian's release '$suite'"
}

# make_debian DIR PACKAGE...: a fresh system with these packages and what Debian calls
# required, in a folder whose name it sets `root` to. It is unpacked once, below DIR, and
# each call gets a copy, which goes when the script ends.
make_debian() {
  local base packages
  find_mirror
  packages=$(IFS=,; echo "${*:2}")
  mkdir -p "$1"
  base=$(readlink -f "$1")/$suite
  if [ ! -d "$base" ]; then
    rm -rf "$base.new"
    proxies debootstrap --variant=minbase --include="$packages" "$suite" "$base.new" "$mirror"
    mv "$base.new" "$base"
  fi
  root=$(mktemp -d "$base.XXXXXX")
  # Nothing of this system is mounted in there outside of a namespace that ends by itself.
  trap 'rm -rf --one-file-system "$root"' EXIT
  cp -a --reflink=auto "$base/." "$root"
  # Which Debian's installer writes, and debootstrap does not.
  printf '127.0.0.1\tlocalhost\n::1\tlocalhost\n' >"$root/etc/hosts"
}

# proxies COMMAND...: runs it with the proxies that apt knows.
proxies() {
  local assignments
  eval "$(apt-config shell http_proxy Acquire::http::Proxy https_proxy Acquire::https::Proxy)"
  assignments=(${http_proxy:+http_proxy="$http_proxy"} ${https_proxy:+https_proxy="$https_proxy"})
  env "${assignments[@]}" "$@"
}

# inside NETWORK COMMAND: has a shell run it in $root, with processes of its own and a
# fresh /proc, /dev/pts and /dev/shm, which go when it ends. The network is "own", which
# reaches nobody, or "host", this machine's.
inside() {
  local namespaces=(--mount --pid --fork --kill-child) first='ip link set lo up'
  case $1 in
    own) namespaces+=(--net) ;;
    host)
      first=:
      cp /etc/resolv.conf "$root/etc/resolv.conf"
      apt-config dump | grep -E '^Acquire::https?::Proxy' >"$root/etc/apt/apt.conf.d/90proxies" || true
      ;;
  esac
  # The folder becomes the root of its namespace, since some of what a system can do is
  # denied to whoever has only changed his root directory.
  unshare "${namespaces[@]}" bash -euc '
    mount --bind "$1" "$1"
    cd "$1"
    mount -t proc proc proc
    mount -t devpts -o newinstance,ptmxmode=0666,mode=0620,gid=5 devpts dev/pts
    mount -t tmpfs -o mode=1777 tmpfs dev/shm
    pivot_root . .
    umount -l .
    exec chroot . env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C bash -euc "$2"
  ' inside "$root" "$first; $2"
}
