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

for parameters in "sector_size=512" "sector_size=512 lbpws=1 lbpu=1" "sector_size=4096 lbpws=1 lbpu=1"; do
  reload $parameters
  for keys in "" ",verify=host"; do
    echo "-- $parameters$keys"
    export CORVANE_TEST_DRIVES="sg:/dev/sg0$keys"
    all_pass drive_tests 'Given/*'
  done
done

# UNMAP by itself, where unmapped blocks read as zeros.
reload sector_size=512 lbpu=1 lbprz=1
export CORVANE_TEST_DRIVES="sg:/dev/sg0,trim=unmap"
all_pass drive_tests 'Given/*'
done_testing
