# What all pictures have in common. The ground is transparent and every colour of middle brightness,
# so that a picture can be read on a light and on a dark page.
set terminal svg size 760,440 dynamic font "sans-serif,13" linewidth 1.5
grey = "#808080"
set border 3 linecolor rgb grey
set tics nomirror textcolor rgb grey
set grid linecolor rgb grey linewidth 0.3 dashtype 3
set xlabel textcolor rgb grey
set ylabel textcolor rgb grey
set key textcolor rgb grey
set linetype 1 linecolor rgb "#3b82c4"
set linetype 2 linecolor rgb "#d9701c"
set linetype 3 linecolor rgb "#3f9e4d"
set linetype 4 linecolor rgb "#c05299"
set linetype 5 linecolor rgb "#a58a12"
set linetype 6 linecolor rgb "#8a70c9"
