# complete.fish SCRIPT LINES FOUND-FOLDER: what fish offers at the end of each line, in a file of the
# line's number.
source $argv[1]

set number 0
while read --line line
    complete --do-complete "$line" >$argv[3]/$number
    set number (math $number + 1)
end <$argv[2]
