#!/usr/bin/env bash
# The table of error lines in docs/administrators.md has every text that the module can log as an error, and no other.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/../.."

# Prints the texts of all calls of logError, one a line. "…" stands for values. A call that can't be read is a failure.
texts_of_module() {
    # shellcheck disable=SC2016
    find src -name '*.cpp' -o -name '*.h' | grep -v '^src/log/' | LC_ALL=C sort | xargs perl -CSD -Mutf8 -0777 -ne '
        s{("(?:\\.|[^"\\])*")|//[^\n]*}{$1 // ""}ge;
        $all .= $_;
        END {
            my $string = qr/"(?:\\.|[^"\\])*"/;
            my $nested = qr/(\((?:[^()"]++|$string|(?-1))*+\))/;
            my $code = $all;
            my ($calls, $read) = (scalar(() = $all =~ /\blogError\(/g), 0);
            while ($all =~ /\blogError($nested)\s*;/g) {
                $read++;
                my $inside = substr($1, 1, -1);
                my @arguments = grep { defined && /\S/ } $inside =~ /((?:[^(),"]++|$string|$nested)+)/g;
                @arguments = grep { !/^\(/ || /^\($/ } @arguments;
                my @texts = ("");
                for my $argument (@arguments) {
                    my @choices = ("…");
                    if ($argument =~ /^\s*(?:$string\s*)+$/) {
                        @choices = (join "", map { substr $_, 1, -1 } $argument =~ /$string/g);
                    } elsif ($argument =~ /"/) {
                        die "error_lines_test.sh cannot read: logError($inside)\n";
                    } elsif ($argument =~ /^\s*texts\.(\w+)\s*$/) {
                        my $member = $1;
                        @choices = $code =~ /\.$member = "((?:\\.|[^"\\])*)"/g;
                    } elsif ($argument =~ /^\s*shortText\s*$/) {
                        @choices = $code =~ /putKeyParameter\([^;]*?"((?:\\.|[^"\\])*)"\)/g;
                    }
                    @texts = map { my $begin = $_; map { "$begin$_" } @choices } @texts;
                }
                die "error_lines_test.sh finds no text for: logError($inside)\n" if !@texts || grep { !/\w/ } @texts;
                print "$_\n" for @texts;
            }
            die "error_lines_test.sh read $read of $calls calls of logError\n" if $read != $calls || !$calls;
        }' | LC_ALL=C sort -u
}

texts_of_table() {
    # shellcheck disable=SC2016
    sed -n '/^## Error lines$/,/^## /s/^| \(`.*`\) |.*|.*|$/\1/p' docs/administrators.md | grep -o '`[^`]*`' | tr -d '`' | LC_ALL=C sort
}

module=$(texts_of_module)
if ! difference=$(diff <(texts_of_table) - <<<"$module"); then
    echo "docs/administrators.md, error lines: those with > are missing, those with < are not the module's"
    grep '^[<>]' <<<"$difference"
    exit 1
fi
