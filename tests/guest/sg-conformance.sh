# What every drive promises, over SCSI units of scsi_debug.
. ./lib.sh

reload() {
  rmmod scsi_debug
  modprobe scsi_debug dev_size_mb=16 "$@"
  tries=0
  until [ -e /dev/sg0 ] || [ $tries -ge 100 ]; do
    usleep 50000
    tries=$((tries + 1))
  done
}

# promises ADDRESS
promises() {
  export CORVANE_TEST_DRIVES=$1,verify=device
  all_pass drive_conformance_tests 'Given/*'
  export CORVANE_TEST_DRIVES=$1,verify=host
  all_pass drive_conformance_tests 'Given/*'
}

for parameters in "sector_size=512" "sector_size=4096 lbpws=1"; do
  echo "-- $parameters"
  reload $parameters
  promises sg:/dev/sg0
done
echo "-- UNMAP, where unmapped blocks read as zeros"
reload sector_size=512 lbpu=1 lbprz=1
promises sg:/dev/sg0,trim=unmap
echo "-- without the kernel's copies"
echo 1 >/sys/module/sg/parameters/allow_dio
promises sg:/dev/sg0
done_testing
