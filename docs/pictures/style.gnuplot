# What the charts have in common. Loaded by them; see scripts/pictures.
set terminal svg size 720,360 font "Helvetica,12" background "#ffffff"
set datafile separator ","
set border 3 lc rgb "#555555"
set tics nomirror scale 0.5
set xtics scale 0
set grid ytics lc rgb "#dddddd" lt 1
set key outside bottom center horizontal Left reverse samplen 1
set style fill solid 1.0 noborder
set boxwidth 0.9
ours = "#4a6fa5"
bare = "#c3ccd9"
