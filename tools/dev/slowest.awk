# SPDX-License-Identifier: MIT
# Passes ctest's output on, with the ten slowest tests before its summary.
/ Test +#[0-9]+: .* sec$/ { seconds[$4] = $(NF - 1) }

/ tests passed, / {
  print "The ten slowest, in seconds:"
  fflush()
  sort = "sort -rn | head -n 10"
  for (test in seconds) printf "%8.1f  %s\n", seconds[test], test | sort
  close(sort)
  print ""
}

{ print; fflush() }
