# Memory over notifications, a line for each shape.
set xlabel "notifications with one disc changed"
set ylabel "private dirty memory since the first, MiB"
set key outside top center horizontal maxcols 3
set yrange [0:]
set format x "%.0s %c"
plot for [shape = 0:5] data index shape using 1:2 \
    with lines linetype shape + 1 title columnheader(1)
