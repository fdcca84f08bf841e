# Reads the callgrind dumps of two runs of the benchmark programs (a short
# and a long one, see scripts/bench.sh --instructions) and prints the
# instruction table: per operation of each row, the module's instructions
# against its floor's, with the allocations and system calls of both. Every
# figure is the difference between the two runs divided by the difference
# of their operation counts, so that whatever a run does once (start-up,
# first calls) falls out.
#   awk -v json=FILE -f instruction-table.awk DUMP...
# Each dump names its row in its trigger line:
#   desc: Trigger: Client Request: qira row=R operations=N allocs=A alloc_bytes=B kernel_calls=K
# and gives the instructions collected in its "summary:" line. Its call
# graph gives the host's share: the instructions of every call that the
# module's code makes into the host library (the Variant payloads, the
# platform's BSS decoder, the log lines, the clock), all of which the
# module's contract prescribes; the rest is the module's own code and what
# it asks of libnl and the C and C++ runtimes.

function unit_of(row) {
  if (row ~ /^events\//) return "per event"
  if (row ~ /^scan\//) return "per BSS"
  if (row ~ /^dedup\//) return "per list"
  if (row ~ /^wpa_client\//) return "per request"
  return "per operation"
}

# Adds one run's totals to `row`.
function note_run(row, fields,    n) {
  n = ++runs[row]
  operations[row, n] = fields["operations"]
  instructions[row, n] = fields["summary"]
  host_share[row, n] = fields["host"] + 0
  allocs[row, n] = fields["allocs"]
  alloc_bytes[row, n] = fields["alloc_bytes"]
  kernel_calls[row, n] = fields["kernel_calls"]
  if (!(row in seen)) {
    seen[row] = 1
    order[++row_count] = row
  }
}

# Per-operation difference of `values` between the longer and shorter run.
function per_operation(values, row,    short, long) {
  short = operations[row, 1] < operations[row, 2] ? 1 : 2
  long = 3 - short
  return (values[row, long] - values[row, short]) / (operations[row, long] - operations[row, short])
}

function check_row(row) {
  if (runs[row] != 2 || operations[row, 1] == operations[row, 2]) {
    printf "instruction-table: row %s has %d run(s) of distinct lengths, not 2\n", row,
      runs[row] > "/dev/stderr"
    failed = 1
    exit 1
  }
}

function json_figures(row) {
  return sprintf("{\"instructions\": %.1f, \"host_instructions\": %.1f, \"allocs\": %.2f, " \
                 "\"alloc_bytes\": %.1f, \"kernel_calls\": %.2f}",
                 per_operation(instructions, row), per_operation(host_share, row),
                 per_operation(allocs, row), per_operation(alloc_bytes, row),
                 per_operation(kernel_calls, row))
}

# The object named by a callgrind "ob=" or "cob=" value, "(id) name" the
# first time and "(id)" after.
function object_of(value,    id) {
  id = value
  sub(/\).*/, "", id)
  sub(/^\(/, "", id)
  if (value ~ /^\([0-9]+\) /) {
    sub(/^\([0-9]+\) /, "", value)
    object_names[id] = value
  }
  return object_names[id]
}

FNR == 1 {
  if (pending_row != "") note_run(pending_row, current)
  pending_row = ""
  delete current
  delete object_names
  caller_object = ""
  callee_object = ""
  pending_callee = ""
  arc_cost_next = 0
}
# The call graph: a "calls=" line is followed by the cost of that call,
# everything below it included.
/^ob=/ { caller_object = object_of(substr($0, 4)); next }
/^cob=/ { pending_callee = object_of(substr($0, 5)); next }
/^cfn=/ {
  callee_object = pending_callee != "" ? pending_callee : caller_object
  pending_callee = ""
  next
}
/^calls=/ { arc_cost_next = 1; next }
arc_cost_next {
  arc_cost_next = 0
  if (caller_object ~ /libqira_network_utils_wireless/ && callee_object ~ /libqira_host/) {
    current["host"] += $2
  }
  next
}
/^desc: Trigger: Client Request: qira row=/ {
  sub(/^desc: Trigger: Client Request: qira /, "")
  for (i = 1; i <= NF; ++i) {
    split($i, pair, "=")
    current[pair[1]] = pair[2]
  }
  pending_row = current["row"]
}
/^summary: / && pending_row != "" { current["summary"] = $2 }

END {
  if (failed) exit 1
  if (pending_row != "") note_run(pending_row, current)
  module_rows = 0
  for (i = 1; i <= row_count; ++i) {
    row = order[i]
    check_row(row)
    if (row !~ /^floor\//) ++module_rows
  }
  if (module_rows == 0) {
    print "instruction-table: no row found in the dumps" > "/dev/stderr"
    exit 1
  }
  printf "| row | unit | module instructions | of which host | floor instructions | " \
         "module / floor | without host / floor | module allocs (bytes) | floor allocs (bytes) | " \
         "system calls module / floor |\n"
  printf "|---|---|---|---|---|---|---|---|---|---|\n"
  json_rows = ""
  for (i = 1; i <= row_count; ++i) {
    row = order[i]
    if (row ~ /^floor\//) continue
    floor_row = "floor/" row
    module_instructions = per_operation(instructions, row)
    module_host = per_operation(host_share, row)
    module_allocs = sprintf("%.1f (%.0f)", per_operation(allocs, row),
                            per_operation(alloc_bytes, row))
    if (floor_row in seen) {
      floor_instructions = per_operation(instructions, floor_row)
      floor_text = sprintf("%.0f", floor_instructions)
      ratio_text = sprintf("%.2f", module_instructions / floor_instructions)
      own_ratio_text = sprintf("%.2f", (module_instructions - module_host) / floor_instructions)
      floor_allocs = sprintf("%.1f (%.0f)", per_operation(allocs, floor_row),
                             per_operation(alloc_bytes, floor_row))
      calls = sprintf("%.1f / %.1f", per_operation(kernel_calls, row),
                      per_operation(kernel_calls, floor_row))
      floor_json = json_figures(floor_row)
      ratio_json = ratio_text
    } else {
      floor_text = "-"
      ratio_text = "-"
      own_ratio_text = "-"
      floor_allocs = "-"
      calls = sprintf("%.1f / -", per_operation(kernel_calls, row))
      floor_json = "null"
      ratio_json = "null"
    }
    printf "| %s | %s | %.0f | %.0f | %s | %s | %s | %s | %s | %s |\n", row, unit_of(row),
           module_instructions, module_host, floor_text, ratio_text, own_ratio_text,
           module_allocs, floor_allocs, calls
    json_rows = json_rows (json_rows == "" ? "" : ",\n") \
                sprintf("    {\"row\": \"%s\", \"unit\": \"%s\", \"module\": %s, \"floor\": %s, " \
                        "\"module_per_floor\": %s}", row, unit_of(row), json_figures(row),
                        floor_json, ratio_json)
  }
  growth_json = "null"
  if (("dedup/bss:10" in seen) && ("dedup/bss:100" in seen)) {
    growth = per_operation(instructions, "dedup/bss:100") / per_operation(instructions, "dedup/bss:10")
    # n log n from 10 to 100 nodes: 100 log 100 / (10 log 10) = 20.
    printf "\ndedup_scanlist from 10 to 100 nodes: %.1f times the instructions " \
           "(n log n would be 20 times)\n", growth
    growth_json = sprintf("{\"from_nodes\": 10, \"to_nodes\": 100, \"instructions_ratio\": %.2f, " \
                          "\"n_log_n_ratio\": 20}", growth)
  }
  if (json != "") {
    printf "{\n  \"rows\": [\n%s\n  ],\n  \"dedup_growth\": %s\n}\n", json_rows, growth_json > json
  }
}
