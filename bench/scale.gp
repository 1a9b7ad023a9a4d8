# Draws the plot of docs/performance.md: gnuplot -c bench/scale.gp build/bench/results/scale.dat docs/cost-per-entry.svg
set terminal svg size 720,400 font "sans,12" background "white"
set output ARG2
set title "Cost of an entry, ext4, empty files, 100 in a directory"
set xlabel "entries in the tree"
set ylabel "microseconds per entry"
set logscale x
set xrange [800:1200000]
set format x "%.0s%c"
set yrange [0:*]
set key outside right
set grid ytics
set style data linespoints
plot ARG1 using 1:2 title "chown -r" lw 2, "" using 1:3 title "used space" lw 2, \
     "" using 1:4 title "copy" lw 2, "" using 1:5 title "remove" lw 2
