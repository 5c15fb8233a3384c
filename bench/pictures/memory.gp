# Memory over notifications, one line per shape.
set xlabel "notifications with one disc changed"
set ylabel "private dirty memory since the first, MiB"
set key outside top center horizontal maxcols 3
set yrange [0:]
set xtics ("0" 0, "2,000" 2000, "4,000" 4000, "6,000" 6000, "8,000" 8000, "10,000" 10000)
plot for [shape = 0:5] data index shape using 1:2 \
    with lines linetype shape + 1 title columnheader(1)
