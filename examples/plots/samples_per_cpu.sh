#!/bin/sh
# Draws how many samples each CPU took over time, by thread.
#
#   samples_per_cpu.sh SAMPLES PICTURE.png [MILLISECONDS]
#
# SAMPLES is what `tracemill-report -f jsonl` writes, "-" is standard input. MILLISECONDS is the width of a
# column (default 20). On Debian: apt install gnuplot-nox jq
set -eu
if [ $# -lt 2 ] || [ $# -gt 3 ]; then
  sed -n '2,7s/^# \{0,1\}//p' "$0" >&2
  exit 1
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

[ "$1" = - ] && input=/dev/stdin || input=$1

# One line a sample: time in seconds, CPU, name of the thread.
jq -r '[.time, .cpu // "not recorded", if .thread == "" then "(no name)" else .thread end] | @tsv' "$input" \
  > "$work/samples"
if [ ! -s "$work/samples" ]; then
  echo "samples_per_cpu: there are no samples" >&2
  exit 1
fi

# The busiest threads have a color of their own.
cut -f 3 "$work/samples" | LC_ALL=C sort | uniq -c | sort -k 1nr | head -n 5 | sed 's/^ *[0-9]* //' |
  LC_ALL=C sort > "$work/threads"
cut -f 3 "$work/samples" | grep -qvxFf "$work/threads" && echo others >> "$work/threads"

# A table for each CPU: a row a column of the picture, with its middle and the counts of all threads, each
# on top of the one before.
awk -F '\t' -v width="${3:-20}" -v work="$work" '
  BEGIN { while ((getline name < (work "/threads")) > 0) { names[++n] = name; known[name] } }
  { gsub(/ /, "_", $2); bin = int($1 * 1000 / width); count[$2, $3 in known ? $3 : "others", bin]++
    cpus[$2]; if (bin > last) last = bin }
  END {
    for (cpu in cpus)
      for (bin = 0; bin <= last; bin++) {
        line = (bin + 0.5) * width / 1000; sum = 0
        for (i = 1; i <= n; i++) { sum += count[cpu, names[i], bin]; line = line "\t" sum }
        print line > (work "/cpu" cpu); if (sum > most) most = sum
      }
    print most, (last + 1) * width / 1000 > (work "/ends")
  }' "$work/samples"

cpus=$(cut -f 2 "$work/samples" | sort -u | sort -n | tr ' \n' '_ ')
threads=$(wc -l < "$work/threads")
read -r most end < "$work/ends"
PICTURE=$2 gnuplot <<END
  set terminal pngcairo size 860, 80 + 170 * words("$cpus") font "sans,10" enhanced
  set output system("printf %s \"\$PICTURE\"")
  set multiplot layout words("$cpus"), 1 title "Samples each CPU took in ${3:-20} ms" font "sans,12" \
      margins 0.08, 0.81, 0.14, 0.88 spacing 0.05
  array COLOR[6] = ["#3b6ea5", "#e0a030", "#5a9e6f", "#b5524c", "#7d6bb0", "#b0b0b0"]
  name(i) = system("sed -n " . i . "p $work/threads")
  set style fill solid
  set boxwidth ${3:-20} / 1000.0
  set border 3 linecolor "#888888"
  set tics nomirror out textcolor "#444444"
  set grid ytics linecolor "#dddddd"
  set xrange [0:$end]
  set yrange [0:$most * 1.1]
  set key outside right top Left reverse noenhanced
  do for [cpu in "$cpus"] {
    set ylabel (cpu eq "not_recorded" ? "CPU not recorded" : "CPU " . cpu)
    last = (cpu eq word("$cpus", words("$cpus")))
    set format x (last ? "%g" : "")
    if (last) { set xlabel "seconds" }
    # The highest sum first, so that each thread leaves its own part visible.
    plot for [i = $threads:1:-1] sprintf("$work/cpu%s", cpu) using 1:(column(i + 1)) with boxes \
        linecolor rgb COLOR[name(i) eq "others" ? 6 : i] title name(i)
    unset key
  }
  unset multiplot
END
