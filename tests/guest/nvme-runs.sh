# Whole tests of namespaces of QEMU's controller, which loses nothing: nothing is accused, but what was injected is found.
# 1 has blocks of 512 bytes, 2 of 4096, 3 of 512 with protection information behind each, 4 zones of 1 MiB, and 5 metadata
# of a size that cannot be tested.
. ./lib.sh

mixed="--commands-of write=4,writesame,trim,read=3,verify --queue-depth 16 --xfer 1..32 --seed 5"
large="--commands-of write=4,writesame,trim,read=3,verify --queue-depth 16 --xfer 1..8 --seed 5"
untrimmed="--commands-of write=4,writesame,read=3,verify --queue-depth 16 --xfer 1..32 --seed 5"
zoned="--commands-of write=4,read=3,verify --queue-depth 16 --xfer 1..8 --seed 5 --zone-reset-every 100"
queue() { corvane run "$@" --set "Write Splice Detection=true" --set "Min Queue Size=64" --set "Max Queue Size=512"; }
# compared_something: a test that compared nothing would be silent too.
compared_something() { said '^  checked +[0-9,]+ blocks against one content'; }

# clean ADDRESS OPTION...: a test with resets of the controller that finds nothing.
clean() {
  address=$1
  shift
  echo "-- $address"
  expect 0 queue --drive "$address" --commands 1000 "$@" --reset-every 200
  said 'Result: clean'
  said '^  events .*resets [1-9]'
  compared_something
}

clean nvme:/dev/nvme0n1,engine=uring $mixed
said 'io_uring commands on /dev/ng0n1'
# Without resets: after some of them QEMU's controller left a command unanswered here, which the kernel aborts after 30
# seconds while it holds back all others.
expect 0 queue --drive nvme:/dev/nvme0n1,engine=threads --commands 1000 $mixed
said 'Result: clean'
said 'ioctl by a thread pool'
compared_something
clean nvme:/dev/ng0n2 $large
said '4096-byte blocks'
clean nvme:/dev/nvme0n3 $untrimmed
said '512-byte blocks.* 8 '
clean nvme:/dev/nvme0n3,pi=off $mixed
said 'protection information type 1 by the controller'

# Without resets no command fails; with them a drive may not have seen a write, and refuses those behind it.
echo "-- zones"
expect 0 queue --drive nvme:/dev/nvme0n4 --commands 1000 $zoned
said 'Result: clean'
said '^  events .*zone resets [1-9]'
said_not 'commands that failed'
compared_something
clean nvme:/dev/nvme0n4 $zoned
said '^  events .*zone resets [1-9]'

# Of further workers some would cut addresses to 32 bits. The kernel keeps an idle one for seconds, so it is seen.
echo "-- io_uring keeps to one worker"
corvane run --drive nvme:/dev/nvme0n1,engine=uring --commands 1000 $mixed --reset-every 50 >output 2>&1 &
most=0
while kill -0 $! 2>/dev/null; do
  now=$(cat /proc/$!/task/*/comm 2>/dev/null | grep -c iou-wrk)
  [ "$now" -le "$most" ] || most=$now
done
wait $! || fail "a run with many resets"
[ "$most" -eq 1 ] || fail "$most workers of io_uring instead of one"

echo "-- a write that is lost on its way is found"
expect 1 queue --drive nvme:/dev/nvme0n1 --commands 2000 $mixed --fault lost-write:at=command:500
said 'DATA FAILURE: Miscompare Detected'
said 'What decides the content is the write with command id'

echo "-- what cannot be opened"
expect 3 corvane run --drive nvme:/dev/nvme9n1 --commands 10
said "NVMe device '/dev/nvme9n1' cannot be opened: No such file or directory"
expect 3 corvane run --drive nvme:/dev/nvme0n5 --commands 10
said "NVMe device '/dev/nvme0n5' is formatted with 16 bytes of metadata a block; format it with none or 8"
for device in /dev/sg0 /dev/sda /dev/nvme0 /dev/null; do
  expect 3 corvane run --drive nvme:$device --commands 10
  said "NVMe device '$device' is not an NVMe namespace; name one"
done
expect 2 corvane run --drive nvme:/dev/nvme0n1,pi=8 --commands 10
said 'pi=8 is not known; it takes on, off'
done_testing
