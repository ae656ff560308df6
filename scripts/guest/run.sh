#!/usr/bin/env bash
# Runs a command in a guest that has the drives which this machine's kernel may lack.
#
#   scripts/guest/run.sh [options] -- COMMAND [ARGUMENT]...
#   scripts/guest/run.sh [options] --script FILE
#
#   --scsi "KEY=VALUE ..."  scsi_debug with these parameters: /dev/sg0 and /dev/sda, and more with num_tgts=
#   --nvme SPEC             a namespace of an NVMe controller, repeatable, in the order of its numbers: /dev/nvme0n1,
#                           /dev/ng0n1. SPEC is BLOCKSIZE[,KEY=VALUE]..., the keys being size=BYTES (64M) and those of
#                           QEMU's nvme-ns, e.g. 512, 4096,ms=8,pi=1,mset=1 and 4096,zoned=true,zoned.zone_size=4M
#   --program FILE          put into the guest's /corvane/bin (in the PATH) with the libraries that it needs; repeatable
#   --file FILE             put into the guest's /root, where the command starts; repeatable
#   --env NAME=VALUE        in the environment of the command; repeatable
#   --results FOLDER        what the command leaves in the guest's /out is unpacked there
#   --build FOLDER          whose bin/corvane is put into the guest (build/release)
#   --time SECONDS          the most that all this may take (120)
#   --memory MIB            of the guest (1024)
#   --verbose               with the guest kernel's messages on stderr
#
# The command's output goes to stdout, and its exit status is the script's; 77 when there can be no guest here, 124 when
# the time was over, 125 when the guest itself failed, with its kernel's messages on stderr.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
cache=$root/build/guest
source "$root/scripts/guest/kernel.sh"
source "$root/scripts/guest/payload.sh"

usage() {
  sed -n '2,/^set /{/^set /d;s/^# \{0,1\}//;p}' "${BASH_SOURCE[0]}"
  exit "$1"
}

scsi=
build=$root/build/release
seconds=120
memory=1024
results=
script=
verbose=
namespaces=()
programs=()
files=()
variables=()
while [ $# -gt 0 ]; do
  case $1 in
    --) shift && break ;;
    --help) usage 0 ;;
    --verbose) verbose=1 && shift && continue ;;
  esac
  [ $# -ge 2 ] || { echo "run.sh: '$1' wants a value, or is no option; see --help" >&2 && exit 2; }
  case $1 in
    --scsi) scsi=$2 ;;
    --nvme) namespaces+=("$2") ;;
    --program) programs+=("$2") ;;
    --file) files+=("$2") ;;
    --env) variables+=("$2") ;;
    --results) results=$2 ;;
    --build) build=$(realpath "$2") ;;
    --time) seconds=$2 ;;
    --memory) memory=$2 ;;
    --script) script=$2 ;;
    *) echo "run.sh: '$1' is no option; see --help" >&2 && exit 2 ;;
  esac
  shift 2
done
[ $# -gt 0 ] || [ -n "$script" ] || usage 2 >&2

for tool in qemu-system-x86_64 busybox; do
  command -v "$tool" >/dev/null || { echo "run.sh: $tool is missing; install packages.guest.txt" >&2 && exit 77; }
done
work=$(mktemp -d)
qemu=
cleanup() {
  [ -z "$qemu" ] || kill -KILL "$qemu" 2>/dev/null || true
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 143' TERM INT

# add_namespaces: the controller and its namespaces to "devices", each on a file of its own.
add_namespaces() {
  [ "${#namespaces[@]}" -gt 0 ] || return 0
  devices+=(-device nvme,id=nvme0,serial=guest0)
  local number=0 spec block keys size
  for spec in "${namespaces[@]}"; do
    number=$((number + 1))
    block=${spec%%,*}
    keys=,${spec#"$block"}
    size=64M
    if [[ $keys =~ ,size=([0-9]+[KMG]?) ]]; then
      size=${BASH_REMATCH[1]}
      keys=${keys/",size=$size"/}
    fi
    truncate -s "$size" "$work/namespace$number.img"
    devices+=(-drive "file=$work/namespace$number.img,if=none,id=drive$number,format=raw,discard=unmap")
    keys=$(sed 's/,,*/,/g; s/,$//' <<<"$keys")
    devices+=(-device "nvme-ns,drive=drive$number,bus=nvme0,nsid=$number,logical_block_size=$block,physical_block_size=$block$keys")
  done
}

deadline=$((SECONDS + seconds))
# Several at once would unpack the same kernel.
mkdir -p "$cache"
exec {lock}>"$cache/lock"
flock -w "$seconds" "$lock" || { echo "run.sh: another run holds $cache/lock" >&2 && exit 124; }
fetch_kernel || { echo "run.sh: there is no kernel for a guest" >&2 && exit 77; }
cat "$cache/$kernel_package/base.cpio" >"$work/initrd"
flock -u "$lock"
make_payload "$work/payload" "$@"
pack "$work/payload" "$work/payload.cpio"
cat "$work/payload.cpio" >>"$work/initrd"

devices=()
add_namespaces
# The status has a port of its own, so that nothing that the command prints can be taken for it.
for port in output results status; do
  devices+=(-chardev "file,id=$port,path=$work/$port" -device "virtserialport,chardev=$port,name=$port")
done
# The kernel's check that its timer ticks, at its start, fails where the emulated processors get too little time.
accelerator=(-accel "${CORVANE_GUEST_ACCEL:-tcg}")
qemu-system-x86_64 -M q35 "${accelerator[@]}" -cpu max -smp 2 -m "$memory" -nodefaults -display none -no-user-config \
  -no-reboot -nic none -kernel "$cache/$kernel_package/vmlinuz" -initrd "$work/initrd" \
  -append "console=ttyS0 quiet panic=-1 no_timer_check rdinit=/guest/init" -chardev "file,id=console,path=$work/console" \
  -serial chardev:console -device virtio-serial-pci "${devices[@]}" {lock}>&- &
qemu=$!

# The output is shown as it comes.
touch "$work/output"
tail -f -c +1 --pid="$qemu" "$work/output" {lock}>&- &
tail=$!
late=
while kill -0 "$qemu" 2>/dev/null; do
  if [ "$SECONDS" -ge "$deadline" ]; then
    late=1
    kill -KILL "$qemu" 2>/dev/null || true
    break
  fi
  sleep 0.1
done
wait "$qemu" 2>/dev/null || true
qemu=
wait "$tail" 2>/dev/null || true

status=$(cat "$work/status" 2>/dev/null || true)
[ -n "$verbose" ] || [ -z "$status" ] && cat "$work/console" >&2
if [ -n "$late" ]; then
  echo "run.sh: the guest was not ready after $seconds seconds; --time gives it more" >&2
  exit 124
fi
[ -n "$status" ] || { echo "run.sh: the guest ended before the command did" >&2 && exit 125; }
if [ -n "$results" ]; then
  mkdir -p "$results"
  tar -xf "$work/results" -C "$results"
fi
exit "$status"
