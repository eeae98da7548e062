# SPDX-License-Identifier: Apache-2.0
# The virtual terminal of the arm64 stage: Debian's kernel, a file system of our own, and a run of QEMU with a reader on
# its serial port and one on its USB bus. Uses $out, $tree, $library and $on_pty of the stage.
vm=$out/guest
multiarch=/usr/lib/aarch64-linux-gnu
cross=/usr/aarch64-linux-gnu/lib

fetch_kernel() { # with its modules for USB, and for a disk with a root file system, and a shell; once
  [ -f $vm/fetched ] && [ -n "$(module virtio_blk)" ] && return
  rm -rf $vm
  mkdir -p $vm/download $vm/unpacked
  local kernel package
  kernel=$(apt-cache depends linux-image-arm64:arm64 | sed -n 's/.*Depends: \(linux-image-[^ ]*\).*/\1/p' | head -n 1)
  [ -n "$kernel" ] || return 1
  (cd $vm/download && apt-get download "${kernel%:arm64}:arm64" busybox-static:arm64) || return 1
  for package in "$vm"/download/linux-image-*.deb; do
    dpkg-deb --fsys-tarfile "$package" |
      tar -x -C $vm/unpacked --wildcards './boot/vmlinuz-*' './lib/modules/*/kernel/drivers/usb/*' \
        './lib/modules/*/kernel/drivers/virtio/*' './lib/modules/*/kernel/drivers/block/virtio*' \
        './lib/modules/*/kernel/fs/*' './lib/modules/*/kernel/lib/*' './lib/modules/*/kernel/crypto/*' || return 1
  done
  for package in "$vm"/download/busybox*.deb; do
    dpkg-deb --fsys-tarfile "$package" | tar -x -C $vm/unpacked || return 1
  done
  rm -rf $vm/download
  touch $vm/fetched
}

module() { find $vm/unpacked/lib/modules -name "$1.ko" 2>/dev/null | head -n 1; }

install_program() { # file, directory
  aarch64-linux-gnu-strip -o "$2/$(basename "$1")" "$1"
}

install_library() { # name, directory
  local folder
  for folder in $multiarch /lib/aarch64-linux-gnu $cross; do
    if [ -e "$folder/$1" ]; then
      cp -L "$folder/$1" "$2/"
      return
    fi
  done
  echo "no $1"
  return 1
}

make_initramfs() {
  local root=$vm/root name
  rm -rf $root
  mkdir -p $root/{bin,dev,proc,sys,tmp,run,modules,tests,profiles,lib,usr/lib} "$root$multiarch/gconv"
  cp $vm/unpacked/bin/busybox $root/bin/busybox
  for name in sh mount mkdir insmod rmmod sed cat grep sleep rm poweroff; do ln -s busybox $root/bin/$name; done
  for name in usb-common usbcore xhci-hcd xhci-pci; do
    aarch64-linux-gnu-strip --strip-debug -o $root/modules/$name.ko "$(module $name)" || return 1
  done
  cp tests/target/init $root/init
  cp sim/profiles/shipped/* $root/profiles/
  install_program $tree/vorn $root/bin && install_program $tree/tests/target/target_services $root/bin || return 1
  for name in $(printf '%s\n' $on_pty | sed 's|/.*||' | sort -u); do
    install_program $tree/tests/test_"$name" $root/tests || return 1
  done
  deal_out >$root/tests/parts
  cp $library $root/lib/
  for name in ld-linux-aarch64.so.1 libc.so.6 libm.so.6 libdl.so.2 libpthread.so.0 libgcc_s.so.1 libudev.so.1 \
    libusb-1.0.so.0 libcjson.so.1 libcrypto.so.3 libusbredirparser.so.1; do
    install_library $name $root/lib || return 1
  done
  cp $multiarch/gconv/{GBK.so,UNICODE.so,gconv-modules} "$root$multiarch/gconv/"
  [ -d $multiarch/gconv/gconv-modules.d ] && cp -r $multiarch/gconv/gconv-modules.d "$root$multiarch/gconv/"
  (cd $root && find . | cpio -o -H newc -R 0:0 --quiet | gzip -1) >$vm/initrd.gz
}

# "PART PROGRAM:FILE" for each of $on_pty: the four guests take them in turn.
deal_out() {
  local part=0 test
  for test in $on_pty; do
    echo "$((part % 4 + 1)) test_${test%/*}:${test#*/}.cpp"
    part=$((part + 1))
  done
}

run_guest() { # profile, suite, part
  local profile=$1 suite=$2 socket=$out/reader-$2.sock peer=$out/peer-$2 reader port
  rm -f "$socket" "$peer"
  build/vorn sim "$profile" --usb-socket "$socket" >"$peer" 2>"$peer.err" &
  reader=$!
  # The reader and the virtual machine end with this function, whatever ends it.
  trap 'kill $reader 2>/dev/null' EXIT
  for _ in $(seq 1200); do
    [ -s "$peer" ] && [ -S "$socket" ] && break
    sleep 0.05
  done
  port=$(head -n 1 "$peer")
  timeout 3000 qemu-system-aarch64 -M virt -cpu cortex-a57 -m 512 -nodefaults -nographic -no-reboot \
    -kernel "$(find $vm/unpacked/boot -name 'vmlinuz-*' | head -n 1)" -initrd $vm/initrd.gz \
    -append "console=ttyAMA0 quiet panic=-1 vorn.profile=$profile vorn.suite=$suite vorn.part=$3" \
    -serial mon:stdio -chardev serial,id=s0,path=/dev/"$port" -device pci-serial,chardev=s0 \
    -device qemu-xhci -chardev socket,id=r0,path="$socket" -device usb-redir,chardev=r0 \
    </dev/null >"$out/console-$suite" 2>&1
}

# One kind of run ("tty", "usb", "pty") over all guests: "18 passed, 0 failed, 0 skipped".
console_results() { # kind
  local console
  for console in "$out"/console-*; do
    tr -d '\r' <"$console" | awk -v kind="$1" '
      /\[       OK \]/ { passed++ }
      /\[  FAILED  \] .* \(/ { lost++ }
      /\[  SKIPPED \] .* \(/ { skipped++ }
      /^VORN-RUN / {
        if ($2 == kind) { print passed + 0, lost + 0, skipped + 0 }
        passed = lost = skipped = 0
      }'
  done | awk '{ p += $1; f += $2; s += $3 } END { printf "%d passed, %d failed, %d skipped\n", p, f, s }'
}
