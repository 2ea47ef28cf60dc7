# The cost of one call of a piece of code on the board's Cortex-A7 class core,
# from two insncount reports of the same program doing the work `lo` and `hi`
# times (set-up and warm-up cancel in the difference):
#
#   awk -f bench/armcount/a7cost.awk -v lo=5 -v hi=25 -v label=scan LO_REPORT HI_REPORT
#
# Prints one line: label, instructions per call (millions), the class mix, NEON
# q-register operations per call, and cycles per
# call at 1.0 GHz under a low and a high cycles-per-instruction assumption per
# class for an in-order core (VFP latency chains, NEON on a 64-bit data path,
# divides), as ms and as a share of the 20 ms frame. Plan with the high end.
# Data-cache stalls, branch mispredictions and real issue rules are not
# modelled: an estimate, not a measurement.
#
# With -v header=1 it prints the column names first.

BEGIN {
  split("int_other int_ldst branch fp_ldst fp_move vfp_s vfp_f64 neon_d neon_q div_sqrt multi_reg", k)
  split("0.8 1.0 1.0 1.0 1.0 1.0 1.5 1.0 2.0 14.0 0.5", l)
  split("1.2 2.0 2.0 2.0 3.0 3.0 4.0 3.0 4.0 18.0 0.5", h)
  for (i in k) { LOW[k[i]] = l[i]; HIGH[k[i]] = h[i] }
  if (header)
    printf "%-14s %8s  %8s %7s %7s %8s %6s %9s %7s  %13s %10s\n", "stage", "M instr", "fp_arith",
           "fp_ldst", "fp_move", "int_ldst", "branch", "int_other", "q-ops", "A7 ms lo-hi", "of 20 ms"
}

NF == 2 && $1 != "mnem" { if (FILENAME == ARGV[1]) a[$1] = $2; else b[$1] = $2 }

function cycles(d, cpi,    c, ds) {
  c = d["int_other"] * cpi["int_other"] + d["int_ldst"] * cpi["int_ldst"] + d["branch"] * cpi["branch"]
  c += d["fp_ldst"] * cpi["fp_ldst"] + d["fp_move"] * cpi["fp_move"]
  ds = d["fp_arith.div_sqrt"]
  c += (d["fp_arith.vfp_s"] - ds) * cpi["vfp_s"] + ds * cpi["div_sqrt"]
  c += d["fp_arith.vfp_f64"] * cpi["vfp_f64"] + d["fp_arith.neon_d"] * cpi["neon_d"]
  c += d["fp_arith.neon_q"] * cpi["neon_q"]
  c += (d["int_ldst.multi_regs"] + d["fp_ldst.multi_regs"]) * cpi["multi_reg"]
  return c
}

END {
  n = hi - lo
  if (n <= 0 || !("total" in b)) { print "a7cost: need two reports and hi > lo" > "/dev/stderr"; exit 1 }
  for (x in b) d[x] = (b[x] - a[x]) / n
  t = d["total"]
  split("fp_arith fp_ldst fp_move int_ldst branch int_other", classes)
  split("8 7 7 8 6 9", width)
  mix = ""
  for (i = 1; i <= 6; ++i) mix = mix sprintf(" %" (width[i] - 1) ".0f%%", 100 * d[classes[i]] / t)
  c_lo = cycles(d, LOW); c_hi = cycles(d, HIGH)
  printf "%-14s %8.3f %s %6.0fk  %5.2f - %5.2f %3.0f-%3.0f %%\n", label, t / 1e6, mix,
         d["fp_arith.neon_q"] / 1e3, c_lo / 1e6, c_hi / 1e6, c_lo / 2e5, c_hi / 2e5
}
