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
expect 0 queue --drive $address --size 4m --commands 4000 --commands-of write,read --lba-agent sequential --xfer 1..32 --seed 5
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

echo "-- a host adapter that is busy"
setting opts 0x8000
setting every_nth 20
expect 0 queue --drive $address --commands 3000 $mixed
compared_something
healthy

echo "-- a task set that is full"
setting opts 0x800
setting every_nth 20
expect 0 queue --drive $address --commands 3000 $mixed
compared_something
healthy

echo "-- a write that is lost on its way is found"
expect 1 queue --drive $address --commands 4000 $mixed --fault lost-write:at=command:500
said 'DATA FAILURE: Miscompare Detected at LBA'

echo "-- what cannot be opened"
expect 3 corvane run --drive sg:/dev/sg9 --commands 10
said "SCSI device '/dev/sg9' cannot be opened: No such file or directory"
expect 3 corvane run --drive sg:/dev/sda --commands 10
said "SCSI device '/dev/sda' is not a SCSI generic device"
expect 2 corvane run --drive sg:/dev/sg0,timeout=x --commands 10
said "timeout=x is not a whole number"
done_testing
