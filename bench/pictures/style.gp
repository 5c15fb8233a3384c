# The common style of all pictures. The background is transparent; every colour has a contrast of at
# least 4:1 on a white page and on a dark one.
set terminal svg size 760,440 font "sans-serif,13" linewidth 1.5
grey = "#797979"
set border 3 linecolor rgb grey
set tics nomirror textcolor rgb grey
set grid linecolor rgb grey linewidth 0.3 dashtype 3
set xlabel textcolor rgb grey
set ylabel textcolor rgb grey
set key textcolor rgb grey
set linetype 1 linecolor rgb "#397dbc"
set linetype 2 linecolor rgb "#bb6018"
set linetype 3 linecolor rgb "#378943"
set linetype 4 linecolor rgb "#be5197"
set linetype 5 linecolor rgb "#8f7710"
set linetype 6 linecolor rgb "#846bc0"
