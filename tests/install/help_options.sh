# Sourced by the install tests: what "corvel [SUBCOMMAND] --help" lists.

# The option names (-h, --help, -0, --null ...) of "$corvel $1 --help", one a line, sorted.
help_options() {
    "$corvel" $1 --help | awk '/^  -/ { print $1 }' | tr ',' '\n' | sort -u
}

# The fixed values of the options of "$corvel $1 --help" (CLI11 shows them as
# ":{a,b,c}"), one "--option value" a line.
help_values() {
    "$corvel" $1 --help | awk '/^  -/ && /:\{/ {
        option = $1
        values = $0
        sub(/.*:\{/, "", values)
        sub(/\}.*/, "", values)
        n = split(values, list, ",")
        for (i = 1; i <= n; i++)
            print option " " list[i]
    }'
}

# The subcommands "$corvel --help" lists, one a line.
help_subcommands() {
    "$corvel" --help | awk '/^Subcommands:/ { on = 1; next } on && /^$/ { exit } on { print $1 }'
}
