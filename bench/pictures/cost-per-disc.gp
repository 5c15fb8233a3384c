# A notification's cost for a disc over their number: five runs, with the middle half of each.
set xlabel "discs, 1,000 in each changer"
set ylabel "time for a disc, µs"
set key outside top right horizontal
set logscale x 4
set xtics (1000, 4000, 16000, 64000)
set xrange [800:80000]
set yrange [0:]
set format x "%.0f"
plot for [run = 0:4] data index run using 1:2:3:4 \
    with yerrorlines linetype run + 1 pointtype 7 pointsize 0.4 title columnheader(1)
