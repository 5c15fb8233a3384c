# The parse time of libplist over ours for the same list, with the interquartile range.
set xlabel "discs in the list"
set ylabel "libplist's time, in multiples of ours"
set key outside top right horizontal
set logscale x 10
set xtics ("100" 100, "1,000" 1000, "10,000" 10000, "100,000" 100000)
set xrange [15:100000]
set yrange [0:]
plot 1 with lines linecolor rgb grey dashtype 2 title "equal time", \
    for [kept = 0:1] data index kept using 1:2:3:4 \
    with yerrorlines linetype kept + 1 pointtype 7 pointsize 0.5 title columnheader(1)
