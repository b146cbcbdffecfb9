# The rows of the tree in src/cm/cmpaths.def, one line an entry:
#
#   awk -f tree.awk cmpaths.def               type, path, mode, owner, group
#   awk -v root=DIR -f tree.awk cmpaths.def   the lines of a tmpfiles.d file for
#                                             the root DIR, comments included
#
# Types are those of tmpfiles.d. Paths are below the root; "." is the root, and
# faxq/USER stands for every user's queue (not in a tmpfiles.d file, since users
# come later).
BEGIN {
  type["kDir"] = "d"; type["kFile"] = "f"; type["kFifo"] = "p"
  name["kRoot"] = "root"; name["kKrtfax"] = "krtfax"; name["kUser"] = "USER"
}

function entry(kind, path, mode, owner, group) {
  if (length(mode) < 4 || !(owner in name) || !(group in name) ||
      !(kind in type)) {
    print FILENAME ":" FNR ": no row of the tree" >"/dev/stderr"
    failed = 1
    exit
  }
  mode = substr("0" mode, length(mode) - 2)
  if (root == "") {
    print type[kind], path == "" ? "." : path, mode, name[owner], name[group]
  } else if (owner != "kUser") {
    printf "%s%s %-40s %s %-6s %s\n", above, type[kind],
           root (path == "" ? "" : "/" path), mode, name[owner], name[group]
    above = ""
  }
}

# What is said above a row goes with it.
/^\/\/ / { note = note "#" substr($0, 3) "\n"; next }
/^$/ { if (seen) above = "\n"; note = ""; next }

/^CM_(ROOT|USER)_(DIR|FILE|FIFO)\(|^CM_TREE\("/ {
  seen = 1
  above = above note
  note = ""
  split($0, half, "\"")
  split(half[1], head, "[(]")
  gsub(/[), ]+/, " ", half[3])
  count = split(half[3], column, " ")
  if (head[1] == "CM_TREE") {
    entry(column[1], half[2], column[2], column[3], column[4])
  } else {
    kind = "k" substr(head[1], 9, 1) tolower(substr(head[1], 10))
    below = head[1] ~ /USER/ ? "faxq/USER" : ""
    entry(kind, below half[2], column[1], column[2], column[3])
  }
}

END { exit failed }
