# What all pictures have in common. The background is transparent, and every colour has about the same
# contrast with a white page as with a dark one, at least 4:1, so that a picture can be read on both.
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
