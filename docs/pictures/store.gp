# How much longer each peer takes than this store: bars above the line are
# slower than it, bars below are faster.
load "style.gnuplot"
set terminal svg size 720,640 font "Helvetica,12" background "#ffffff"
array peers[4] = ["LMDB", "SQLite, journal", "SQLite, WAL", "Berkeley DB"]
array colours[4] = ["#4a6fa5", "#e0a458", "#b5651d", "#9aa5b1"]
set logscale y
set yrange [0.2:*]
set ytics ("a fifth" 0.2, "half" 0.5, "as this store" 1, "2 x" 2, "5 x" 5, \
           "10 x" 10, "100 x" 100, "1000 x" 1000)
set arrow 1 from graph 0, first 1 to graph 1, first 1 nohead lc rgb "#333333" front
set xrange [-0.6:5.6]
width = 0.2
left(i) = (i - 3) * width
set multiplot layout 2,1
do for [size in "10000 100000"] {
  data = sprintf("store-%s.csv", size)
  last = size eq "10000" ? 4 : 3   # Berkeley DB has the small book only
  set title sprintf("Time of each work against this store, %s,000 persons", size[1:strlen(size)-3])
  plot data skip 1 using 0:(1):xtic(1) with dots lc rgb "#ffffff" notitle, \
       for [i=1:last] data skip 1 \
         using 0:(1):($0 + left(i)):($0 + left(i) + width):(1):(column(i + 1)) \
         with boxxyerror lc rgb colours[i] title peers[i]
}
unset multiplot
