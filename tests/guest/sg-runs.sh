# Whole tests of a SCSI unit: a good one, and one with each kind of error that scsi_debug knows. None of them loses data, so
# each is silent; what counts is that nothing is accused and that the errors are accounted for.
. ./lib.sh

address=sg:/dev/sg0
mixed="--commands-of write=4,writesame,trim,read=3,verify --queue-depth 16 --xfer 1..32 --seed 5"
queue() { corvane run "$@" --set "Write Splice Detection=true" --set "Min Queue Size=64" --set "Max Queue Size=512"; }
# compared_something: a test that compared nothing would be silent too.
compared_something() { said '^  checked +[0-9,]+ blocks against one content'; }

healthy
expect 0 queue --drive $address --commands 4000 $mixed --reset-every 500
said 'Result: clean'
said '^  events .*resets [1-9]'
compared_something

echo "-- blocks that cannot be read, at LBA 4660 and behind"
setting opts 2
expect 0 queue --drive $address --overwrite --size 4m --commands 4000 --commands-of write,read --lba-agent sequential --xfer 1..32 --seed 5
said 'commands that failed [1-9]'
said '^  not checked +[0-9,]+ blocks, the read or verify failed'
compared_something
healthy

echo "-- errors from which the unit recovered"
setting opts 8
setting every_nth 50
expect 0 queue --drive $address --commands 4000 $mixed
said 'commands that failed [1-9]'
said_not 'the read or verify failed'
compared_something
healthy

echo "-- commands that the unit never answers"
setting opts 4
setting every_nth 300
expect 0 queue --drive $address,timeout=1 --commands 3000 $mixed
said 'commands that failed [1-9]'
compared_something
healthy

# What scsi_debug answers here is the full task set together with "aborted": reads go out again, and of the rest nobody
# knows whether they were carried out.
echo "-- a unit whose queue is full"
depth=/sys/class/scsi_generic/sg0/device/queue_depth
before=$(cat $depth)
echo 16 >$depth
setting opts 0x800
setting every_nth 3
expect 0 queue --drive $address --commands 3000 $mixed
said 'commands that failed [1-9][0-9,]*, retried [1-9]'
compared_something
healthy
echo "$before" >$depth

echo "-- a queue that is shorter than wanted"
expect 2 corvane run --drive $address --commands 10 --queue-depth 1000
said 'takes [0-9]+ commands at once, not 1000; lower it'

echo "-- a write that is lost on its way is found"
expect 1 queue --drive $address --commands 4000 $mixed --fault lost-write:at=command:500
said 'DATA FAILURE: Miscompare Detected'
said 'What decides the content is the write with command id'

echo "-- a unit that is tested belongs to its test"
corvane run --drive $address --time 20s >first 2>&1 &
first=$!
tries=0
until ls -l /proc/$first/fd | grep -q /dev/sda || [ $tries -ge 100 ]; do
  usleep 100000
  tries=$((tries + 1))
done
expect 3 corvane run --drive $address --commands 10
said "drive '$address' is in use: it is opened exclusively, and opened by corvane"
kill -INT $first
wait $first
expect 0 corvane run --drive $address --commands 100

echo "-- what cannot be opened"
expect 3 corvane run --drive sg:/dev/sg9 --commands 10
said "SCSI device '/dev/sg9' cannot be opened: No such file or directory"
expect 3 corvane run --drive sg:/dev/sda --commands 10
said "SCSI device '/dev/sda' is not a SCSI generic device"
expect 2 corvane run --drive sg:/dev/sg0,timeout=x --commands 10
said "timeout=x is not a whole number"
done_testing
