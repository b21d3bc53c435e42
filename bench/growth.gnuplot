# One line of growth_BITS.csv as an SVG, beside the straight line through its ends.
# usage: gnuplot -c bench/growth.gnuplot LINE SVG "32=FILE;64=FILE"
line = ARG1
set terminal svg size 560,320 font "sans,11" background rgb "white"
set output ARG2
set datafile separator ","
set logscale xy
set format y "%.1s %cs"
set grid
set key top left
set xlabel line
set ylabel "one call, lower decile"
sources = system("echo '".ARG3."' | tr ';' '\n'")
bits(source) = source[1:strstrt(source, "=") - 1]
file(source) = source[strstrt(source, "=") + 1:]
# A logarithmic scale has no place for nothing: it is shown at a half.
x(column_x) = column_x == 0 ? 0.5 : column_x
chosen(value) = strcol(2) eq line ? value : NaN
plot for [source in sources] file(source) using (chosen(x($3))):(chosen($5 * 1e-9)) with linespoints pt 7 ps 0.5 \
         title bits(source)." bits", \
     for [source in sources] file(source) using (chosen(x($3))):(chosen($6 * 1e-9)) with lines dt 2 \
         title bits(source)." bits, straight"
