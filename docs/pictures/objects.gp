# The text form: the object library, and the same lines through stdio alone.
load "style.gnuplot"
set title "The text form, MB/s"
set style data histogram
set style histogram clustered gap 1
set yrange [0:*]
set xrange [-0.7:3.7]
plot "objects.csv" using 2:xtic(1) skip 1 lc rgb bare title "its lines through stdio", \
     "" using 3 skip 1 lc rgb ours title "objects"
