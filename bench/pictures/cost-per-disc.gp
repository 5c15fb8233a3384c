# Time per disc of a notification, by number of discs: five runs, with their interquartile ranges. The
# points are shifted sideways: otherwise the error bars would hide each other.
set xlabel "discs, 1,000 in each changer"
set ylabel "time for a disc, µs"
set key outside top right horizontal
set logscale x 4
set xtics ("1,000" 1000, "4,000" 4000, "16,000" 16000, "64,000" 64000)
set xrange [800:80000]
set yrange [0:]
plot for [run = 0:4] data index run using ($1 * 1.04 ** (run - 2)):2:3:4 \
    with yerrorlines linetype run + 1 pointtype 7 pointsize 0.4 title columnheader(1)
