# Completion of dovrel for fish.

function __dovrel_scripts
    __fish_complete_suffix .dv
end

function __dovrel_names
    dovrel doc --names 2>/dev/null | string replace -r '\["(.*)"\]' '.$1'
end

function __dovrel_codes
    dovrel check --codes 2>/dev/null | string replace '  ' \t
end

complete -c dovrel -f
complete -c dovrel -s h -l help -d 'Print help'
complete -c dovrel -l version -d 'Print the version'

set -l commands run repl check format test profile trace doc lsp dap
complete -c dovrel -n "not __fish_seen_subcommand_from $commands" -a run -d 'Run a script with arguments'
complete -c dovrel -n "not __fish_seen_subcommand_from $commands" -a repl -d 'Offer a prompt'
complete -c dovrel -n "not __fish_seen_subcommand_from $commands" -a check -d 'Find mistakes without running anything'
complete -c dovrel -n "not __fish_seen_subcommand_from $commands" -a format -d 'Lay scripts out in the one layout'
complete -c dovrel -n "not __fish_seen_subcommand_from $commands" -a test -d 'Run the tests of scripts'
complete -c dovrel -n "not __fish_seen_subcommand_from $commands" -a profile -d 'Tell where the time of a script goes'
complete -c dovrel -n "not __fish_seen_subcommand_from $commands" -a trace -d 'Show each statement and what it assigns'
complete -c dovrel -n "not __fish_seen_subcommand_from $commands" -a doc -d 'Show the reference of a library function'
complete -c dovrel -n "not __fish_seen_subcommand_from $commands" -a lsp -d 'Serve an editor'
complete -c dovrel -n "not __fish_seen_subcommand_from $commands" -a dap -d 'Debug a script in an editor'

complete -c dovrel -n '__fish_seen_subcommand_from run' -F
complete -c dovrel -n '__fish_seen_subcommand_from run' -o e -x -d 'Run this text in place of a file'

complete -c dovrel -n '__fish_seen_subcommand_from run test' -l checked -d 'Tell what happens in silence'
complete -c dovrel -n '__fish_seen_subcommand_from run test' -l checked=error -d 'Make an error of it'
complete -c dovrel -n '__fish_seen_subcommand_from run test' -l checked=off -d 'Look for nothing'

complete -c dovrel -n '__fish_seen_subcommand_from check format' -a '(__dovrel_scripts)'
complete -c dovrel -n '__fish_seen_subcommand_from check' -l format -x -a 'text json sarif' -d 'How to write what was found'
complete -c dovrel -n '__fish_seen_subcommand_from check' -l strict -d 'Give status 1 for warnings too'
complete -c dovrel -n '__fish_seen_subcommand_from check' -l explain -x -a '(__dovrel_codes)' -d 'Tell what a code means'
complete -c dovrel -n '__fish_seen_subcommand_from check' -l codes -d 'List all codes'

complete -c dovrel -n '__fish_seen_subcommand_from format' -l check -d 'Name the files that are laid out differently'
complete -c dovrel -n '__fish_seen_subcommand_from format' -l diff -d 'Show what would change'

complete -c dovrel -n '__fish_seen_subcommand_from test' -F
complete -c dovrel -n '__fish_seen_subcommand_from test' -l filter -x -d 'Only tests whose names hold a text'
complete -c dovrel -n '__fish_seen_subcommand_from test' -l junit -r -d 'Write the results as JUnit XML'
complete -c dovrel -n '__fish_seen_subcommand_from test' -l timeout -x -d 'The time for each test'
complete -c dovrel -n '__fish_seen_subcommand_from test' -l list -d 'List the tests and run none'
complete -c dovrel -n '__fish_seen_subcommand_from test' -l output -d 'Show what tests write'

complete -c dovrel -n '__fish_seen_subcommand_from test' -l coverage -d 'Tell which lines have run'
complete -c dovrel -n '__fish_seen_subcommand_from test' -l coverage-html -r -d 'The same as a page for a browser'
complete -c dovrel -n '__fish_seen_subcommand_from test' -l coverage-lcov -r -d 'The same as an lcov tracefile'
complete -c dovrel -n '__fish_seen_subcommand_from test' -l coverage-least -x -d 'Fail if less has run'

complete -c dovrel -n '__fish_seen_subcommand_from profile trace' -F
complete -c dovrel -n '__fish_seen_subcommand_from profile trace' -o e -x -d 'Run this text in place of a file'
complete -c dovrel -n '__fish_seen_subcommand_from profile trace' -l output -r -d 'Write to a file'
complete -c dovrel -n '__fish_seen_subcommand_from profile' -l lines -x -d 'How many lines are shown'
complete -c dovrel -n '__fish_seen_subcommand_from profile' -l annotate -d 'Show the source with its times'
complete -c dovrel -n '__fish_seen_subcommand_from profile' -l svg -r -d 'Draw a flame graph into a file'
complete -c dovrel -n '__fish_seen_subcommand_from trace' -l function -x -d 'Only statements of this function'
complete -c dovrel -n '__fish_seen_subcommand_from trace' -l line -x -d 'Only these lines'
complete -c dovrel -n '__fish_seen_subcommand_from trace' -l variable -x -d 'Only what is assigned to this variable'
complete -c dovrel -n '__fish_seen_subcommand_from trace' -l errors -d 'Nothing but the calls at an error'
complete -c dovrel -n '__fish_seen_subcommand_from lsp' -l stdio -d 'Speak over standard input and output'

complete -c dovrel -n '__fish_seen_subcommand_from doc' -l names -d 'List all names'
complete -c dovrel -n '__fish_seen_subcommand_from doc' -a '(__dovrel_names)'
