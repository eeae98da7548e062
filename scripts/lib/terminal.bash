# SPDX-License-Identifier: Apache-2.0
# A virtual terminal with a root of its own: an arm64 release of Debian on a disk, made by debootstrap, in which packages
# are installed and used. Needs scripts/lib/guest.bash (kernel) and scripts/lib/debian.bash (mirror), and $out.
disk_modules="virtio_pci_modern_dev virtio_pci_legacy_dev virtio_pci virtio_blk crc16 crc32c_generic libcrc32c mbcache
  jbd2 ext4 usb-common usbcore xhci-hcd xhci-pci"

# What a folder's program `run` says on the console of a terminal with this disk goes to a file. Returns its status.
run_terminal() { # disk (with options of QEMU), folder, file, QEMU's other options...
  local disk=$1 task=$2 console=$3 root name
  shift 3
  root=$(mktemp -d)
  mkdir -p "$root"/{bin,dev,proc,sys,disk,modules}
  cp $vm/unpacked/bin/busybox "$root/bin/busybox"
  for name in sh mount umount mkdir insmod cat cp ln sleep chroot sync poweroff; do ln -s busybox "$root/bin/$name"; done
  for name in $disk_modules; do
    aarch64-linux-gnu-strip --strip-debug -o "$root/modules/$name.ko" "$(module $name)" || return 1
  done
  echo $disk_modules >"$root/modules/order"
  cp tests/packages/terminal-init "$root/init"
  cp -r "$task" "$root/task"
  (cd "$root" && find . | cpio -o -H newc -R 0:0 --quiet | gzip -1) >"$out/initrd-terminal.gz"
  rm -rf "$root"
  timeout 3000 qemu-system-aarch64 -M virt -cpu cortex-a57 -m 512 -nodefaults -nographic -no-reboot \
    -kernel "$(find $vm/unpacked/boot -name 'vmlinuz-*' | head -n 1)" -initrd "$out/initrd-terminal.gz" \
    -append "console=ttyAMA0 quiet panic=-1" -serial mon:stdio \
    -drive "if=none,id=disk,format=raw,$disk" -device virtio-blk-pci,drive=disk "$@" </dev/null >"$console" 2>&1
  grep -q $'^VORN-TASK 0\r*$' "$console"
}

# The disk of a release, with what the packages need and are looked at with: unpacked here, configured by the terminal
# itself. Made once.
terminal_disk() { # release, file
  local folder=$2.folder redirection=libusbredirparser1 task
  [ ! -f "$2" ] || return 0
  [ "$1" = trixie ] && redirection=libusbredirparser1t64
  rm -rf "$folder" "$2".*
  mkdir -p "$(dirname "$2")"
  debootstrap --foreign --arch=arm64 --variant=minbase --keyring=$archive_key \
    --include=libusb-1.0-0,libcjson1,$redirection,man-db,bash-completion,udev "$1" "$folder" \
    "$(debian_mirror)" >"$2.log" 2>&1 || { tail -n 5 "$2.log"; return 1; }
  rm -f "$2.new"
  # What is written here is thrown away when it is not complete.
  mkdir -p "$folder/etc/dpkg/dpkg.cfg.d"
  echo force-unsafe-io >"$folder/etc/dpkg/dpkg.cfg.d/unsafe-io"
  truncate -s 1G "$2.new"
  mke2fs -q -t ext4 -O ^metadata_csum,^64bit -d "$folder" "$2.new" && rm -rf "$folder" || return 1
  task=$(mktemp -d)
  echo '/debootstrap/debootstrap --second-stage || { tail -n 20 /debootstrap/debootstrap.log; exit 1; }
    rm -rf /debootstrap /var/cache/apt/archives/*.deb' >"$task/run"
  run_terminal "file=$2.new,cache=unsafe" "$task" "$2.console" || { tail -n 20 "$2.console"; return 1; }
  rm -rf "$task"
  mv "$2.new" "$2"
}
