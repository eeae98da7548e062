# SPDX-License-Identifier: Apache-2.0
# Debian's releases from this machine's own mirror: single packages, and clean roots to install in. Whoever sources this
# stands in the project's root.
archive_key=/usr/share/keyrings/debian-archive-keyring.gpg

debian_mirror() { # where this machine has Debian from
  apt-get indextargets --format '$(REPO_URI) $(LABEL)' "Created-By: Packages" | awk '$2 == "Debian" { print $1; exit }'
}

# Downloads packages of a release, whatever this machine itself runs, and unpacks each in a folder of its name, what it
# says of itself in DEBIAN.
unpack_from() { # release, architecture, folder, packages...
  local release=$1 architecture=$2 folder=$3 state options package
  shift 3
  state=$(mktemp -d)
  mkdir -p "$state"/{lists/partial,archives/partial} "$folder"
  : >"$state/status"
  echo "deb [signed-by=$archive_key] $(debian_mirror) $release main" >"$state/sources.list"
  options=(-o APT::Architecture="$architecture" -o APT::Architectures::="$architecture" -o APT::Sandbox::User=root
    -o Dir::Etc::SourceList="$state/sources.list" -o Dir::Etc::SourceParts=/dev/null -o Dir::State::Lists="$state/lists"
    -o Dir::Cache="$state" -o Dir::State::Status="$state/status" -o Acquire::Languages=none)
  apt-get "${options[@]}" update -qq && (cd "$state/archives" && apt-get "${options[@]}" download -qq "$@") || return 1
  for package in "$state"/archives/*.deb; do
    dpkg-deb -R "$package" "$folder/$(dpkg-deb -f "$package" Package)" || return 1
  done
  rm -rf "$state"
}

# A tar file of a clean root of this machine's architecture, with what is named installed, and what the packages under
# test depend on downloaded only. Made once: apt needs no network after that.
clean_root() { # release, file, installed, downloaded
  [ ! -f "$2" ] || return 0
  mkdir -p "$(dirname "$2")"
  mmdebstrap --format=tar --variant=minbase --skip=cleanup/apt --include="$3" --quiet \
    --customize-hook="chroot \"\$1\" apt-get install -y -qq --download-only $4" \
    "$1" "$2.new" "deb [signed-by=$archive_key] $(debian_mirror) $1 main" >"$2.log" 2>&1 || {
    tail -n 20 "$2.log"
    return 1
  }
  mv "$2.new" "$2"
}

# Runs a program in a root, with /proc and pseudo-terminals of its own. They and all processes end with it.
in_root() { # root, program, arguments...
  local root=$1
  shift
  # shellcheck disable=SC2016
  unshare --mount --pid --fork --kill-child --propagation private sh -c '
    mount -t proc proc "$0/proc" && mount -t devpts -o newinstance,ptmxmode=0666 devpts "$0/dev/pts" &&
    mount -t tmpfs tmpfs "$0/tmp" || exit 99
    exec chroot "$0" "$@"' "$root" "$@"
}
