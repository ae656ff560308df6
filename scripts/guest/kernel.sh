# A Debian kernel and the first part of a guest's file system. Sourced, not run; the caller has set "root" to the
# project's folder and "cache" to a folder for what is worth keeping.

# What a guest loads before the first device is asked for, and what a script may load in it (scsi_debug, null_blk).
guest_modules="virtio_pci virtio_console crct10dif_generic crc-t10dif t10-pi sd_mod sg nvme scsi_debug null_blk loop"

# fetch_kernel: puts the kernel that Debian calls linux-image-amd64 today into "$cache/<package>", sets kernel_package,
# and removes those of former days; without a network one of them will do. Nothing is installed, only unpacked.
fetch_kernel() {
  local packages
  # Asked of apt at every run: which kernel it is changes with Debian's security updates.
  packages=$(apt-cache depends --no-recommends --no-suggests linux-image-amd64 2>/dev/null |
    sed -n 's/^ *Depends: \(linux-image-[0-9][^ ]*\)$/\1/p')
  kernel_package=${packages%%$'\n'*}
  if [ -z "$kernel_package" ]; then
    echo "apt knows no linux-image-amd64; run apt-get update as root" >&2
    return 1
  fi
  mkdir -p "$cache"
  [ -d "$cache/$kernel_package" ] && return
  local new=$cache/unpacking former
  former=$(cd "$cache" && ls -d linux-image-* 2>/dev/null | head -1)
  rm -rf "$new"
  mkdir -p "$new/package"
  # Into the temporary folder, where apt's own user may write.
  local download
  download=$(mktemp -d)
  chmod 755 "$download"
  if ! (cd "$download" && apt-get download "$kernel_package") >"$download/log" 2>&1; then
    rm -rf "$new"
    if [ -n "$former" ]; then
      echo "$kernel_package cannot be had, $former is taken instead: $(tail -1 "$download/log")" >&2
      kernel_package=$former
      rm -rf "$download"
      return
    fi
    cat "$download/log" >&2
    rm -rf "$download"
    return 1
  fi
  dpkg-deb -x "$download"/linux-image-*.deb "$new/package"
  rm -rf "$download"
  cut_kernel "$new"
  rm -rf "$cache"/linux-image-*
  mv "$new" "$cache/$kernel_package"
}

# cut_kernel FOLDER: makes FOLDER/vmlinuz and FOLDER/base.cpio of FOLDER/package, which goes.
cut_kernel() {
  local folder=$1 version
  version=$(basename "$folder"/package/lib/modules/*)
  mv "$folder"/package/boot/vmlinuz-* "$folder/vmlinuz"
  busybox depmod -b "$folder/package" "$version" 2>/dev/null || depmod -b "$folder/package" "$version"
  local tree=$folder/tree modules=lib/modules/$version module
  mkdir -p "$tree"/{bin,sbin,dev,proc,sys,tmp,etc,root,"$modules"}
  for module in $guest_modules; do
    # A line is "path of the module: paths of those that it needs".
    grep -E "/${module//[-_]/[-_]}\.ko:" "$folder/package/$modules/modules.dep" | tr -d ':' | tr ' ' '\n'
  done | sort -u | while read -r module; do
    [ -n "$module" ] || continue
    mkdir -p "$tree/$modules/$(dirname "$module")"
    cp "$folder/package/$modules/$module" "$tree/$modules/$module"
  done
  cp "$folder/package/$modules"/modules.{order,builtin,builtin.modinfo} "$tree/$modules/"
  busybox depmod -b "$tree" "$version" 2>/dev/null || depmod -b "$tree" "$version"
  cp /bin/busybox "$tree/bin/busybox"
  pack "$tree" "$folder/base.cpio"
  rm -rf "$folder/package" "$tree"
}

# pack FOLDER FILE: the folder as an archive that a kernel takes for its first file system. Several, one behind the
# other, make one file system.
pack() { (cd "$1" && find . | busybox cpio -o -H newc 2>/dev/null) >"$2"; }
