# The times of our walk and of find over the limit, with the interquartile range.
set xlabel "file system" offset 0,-0.5
set bmargin 4.8
set ylabel "time, in multiples of the limit's"
set key outside top right horizontal
set yrange [0:]
set xrange [-0.6:3.6]
set grid noxtics
set xtics scale 0
set style fill solid 0.5 border
set errorbars linecolor rgb grey
width = 0.34
# A comma ends the first line of a label.
wrap(label) = strstrt(label, ", ") == 0 ? label : \
    label[1:strstrt(label, ", ")] . "\n" . label[strstrt(label, ", ") + 2:]
plot data using ($0 - width / 2):2:3:4:(width):xticlabels(wrap(stringcolumn(1))) \
    with boxerrorbars linetype 1 title "ours", \
    data using ($0 + width / 2):5:6:7:(width) with boxerrorbars linetype 2 title "find", \
    1 with lines linecolor rgb grey dashtype 2 title "limit"
