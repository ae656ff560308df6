# What every drive promises, over namespaces of QEMU's controller: 1 with blocks of 512 bytes, 2 of 4096, 3 of 512 with
# protection information behind each.
. ./lib.sh

# promises ADDRESS
promises() {
  echo "-- $1"
  export CORVANE_TEST_DRIVES=$1
  all_pass drive_conformance_tests 'Given/*'
}

promises nvme:/dev/nvme0n1,engine=uring
promises nvme:/dev/nvme0n1,engine=threads
promises nvme:/dev/ng0n2
promises nvme:/dev/nvme0n3
promises nvme:/dev/nvme0n3,pi=off
done_testing
