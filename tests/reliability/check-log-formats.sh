#!/usr/bin/env bash
# Checks that outside texts can reach the log only as arguments of a format:
# - every TLOG_* / BRIDGE_LOG call of the library starts with a string literal
#   (or a macro defined as one);
# - every printf-style call in src/, platform/ and tools/ has a literal format
#   (or forwards a va_list from a function that is itself format-checked);
# - the log entry points carry the printf format attribute, so the compiler's
#   -Wformat=2 (-Wformat-nonliteral, -Wformat-security) checks their callers.
# Usage: check-log-formats.sh <source root>
set -euo pipefail
root=${1:-$(dirname "$0")/../..}
cd "$root"

status=0
report() { echo "$1"; status=1; }

# 1. TLOG_* and BRIDGE_LOG calls: the first argument is "..." or a macro of a literal.
while IFS= read -r hit; do
  report "non-literal log format: $hit"
done < <(perl -0777 -ne '
  my %literal;
  while (/^#define\s+(\w+)\s+"/mg) { $literal{$1} = 1; }
  # The _FOR forms take the function name first and the format second.
  while (/\b((?:TLOG_\w+?|BRIDGE_LOG))(_FOR)?\(\s*(?(2)[^,]+,\s*)([^\s)])(\w*)/g) {
    my ($macro, $first, $rest) = ($1, $3, $4);
    next if $first eq q(") or $literal{$first . $rest};
    next if $macro =~ /^TLOG_(?:COLOUR|WRITE)/;   # the definitions of the macros
    my $line = substr($_, 0, pos($_)) =~ tr/\n//;
    print "$ARGV:", $line + 1, ": $macro($first$rest\n" unless $first eq "f" && $rest eq "mt";
  }' $(find src tools -name '*.cpp' -o -name '*.h' | grep -v 'src/TermsLog.h'))

# 2. printf-family calls with a format that is not a literal.
while IFS= read -r hit; do
  report "non-literal printf format: $hit"
done < <(perl -0777 -ne '
  my %fmtpos = (printf => 0, fprintf => 1, sprintf => 1, snprintf => 2, syslog => 1, dprintf => 1,
                g_strdup_printf => 0, g_print => 0, g_printerr => 0, g_message => 0, g_warning => 0,
                g_critical => 0, g_error => 0, g_debug => 0, SimLog => 1, CORVANE_LOG_ERROR => 0,
                __dlog_print => 3);
  while (/(?<![\w.>:])(\w+)\s*\(/g) {
    my $name = $1;
    next unless exists $fmtpos{$name};
    my $start = pos($_);
    my $depth = 1; my $i = $start; my @args; my $arg = q();
    my $instr = 0;
    while ($i < length($_) && $depth > 0) {
      my $c = substr($_, $i, 1);
      if ($instr) { $arg .= $c; if ($c eq "\\") { $arg .= substr($_, ++$i, 1); } elsif ($c eq q(")) { $instr = 0; } }
      elsif ($c eq q(")) { $instr = 1; $arg .= $c; }
      elsif ($c eq "(") { $depth++; $arg .= $c; }
      elsif ($c eq ")") { $depth--; $arg .= $c if $depth > 0; }
      elsif ($c eq "," && $depth == 1) { push @args, $arg; $arg = q(); }
      else { $arg .= $c; }
      $i++;
    }
    push @args, $arg;
    my $fmt = $args[$fmtpos{$name}] // q();
    $fmt =~ s/^\s+|\s+$//g;
    next if $fmt =~ /^(?:"|[A-Z_][A-Z0-9_]*\s*(?:"|$))/;   # a literal, or literal macros pasted together
    next if $fmt eq q() || $fmt eq "..." || $fmt =~ /^(?:const\s+)?char\s*\*/;  # declarations and macro definitions
    my $line = substr($_, 0, $start) =~ tr/\n//;
    print "$ARGV:", $line + 1, ": $name(... $fmt ...)\n";
  }' $(find src platform tools -name '*.c' -o -name '*.cpp' -o -name '*.h'))

# 3. The entry points are format-checked.
grep -q 'format(printf, 4, 5)' platform/dlog/include/dlog.h || report "__dlog_print lacks its format attribute"
grep -q 'format(printf, 2, 3)' tools/terms-service-sim/SimLog.h || report "SimLog lacks its format attribute"

if [ $status -eq 0 ]; then echo "every log format is a literal"; fi
exit $status
