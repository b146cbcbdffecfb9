# Exchanges a second: the daemon, and the same system calls bare.
load "style.gnuplot"
set title "Commands answered a second (no-op commands; spool on disk, in memory)"
set style data histogram
set style histogram clustered gap 1
set yrange [0:*]
set xrange [-0.7:5.7]
plot "exchange.csv" using 2:xtic(1) skip 1 lc rgb bare title "bare system calls", \
     "" using 3 skip 1 lc rgb ours title "krtcmd"
