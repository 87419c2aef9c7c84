# fish completion for capso-cli

function __capso_cli_packages
    set -l token (commandline -ct)
    for path in $token*.fw $token*/
        echo $path
    end
end

set -l commands list update settings modes signal package doctor

complete -c capso-cli -f
complete -c capso-cli -l json -d 'Print results as JSON'
complete -c capso-cli -l verbose -d 'Say what is done, and how'
complete -c capso-cli -s h -l help -d 'Print help'
complete -c capso-cli -n "not __fish_seen_subcommand_from $commands" -l version -d 'Print the version'

complete -c capso-cli -n "not __fish_seen_subcommand_from $commands" -a list -d 'List the capture devices'
complete -c capso-cli -n "not __fish_seen_subcommand_from $commands" -a update -d 'Write a firmware package to a device'
complete -c capso-cli -n "not __fish_seen_subcommand_from $commands" -a settings -d 'Show or change the four settings'
complete -c capso-cli -n "not __fish_seen_subcommand_from $commands" -a modes -d 'Show or change the three user modes'
complete -c capso-cli -n "not __fish_seen_subcommand_from $commands" -a signal -d 'Show the signal at the input'
complete -c capso-cli -n "not __fish_seen_subcommand_from $commands" -a package -d 'Tell what firmware packages are'
complete -c capso-cli -n "not __fish_seen_subcommand_from $commands" -a doctor -d 'Tell what keeps devices from being used'

complete -c capso-cli -n '__fish_seen_subcommand_from update package' -a '(__capso_cli_packages)'
complete -c capso-cli -n '__fish_seen_subcommand_from update' -l all -d 'Every device that the package fits'
complete -c capso-cli -n '__fish_seen_subcommand_from update' -l unless-version -x -d 'Leave out devices that report this version'
complete -c capso-cli -n '__fish_seen_subcommand_from signal' -l watch -d 'Show it at each change'
complete -c capso-cli -n '__fish_seen_subcommand_from doctor' -l rules -d 'Print the udev rules'
complete -c capso-cli -n '__fish_seen_subcommand_from settings' \
    -a '{input-resolution,aspect-ratio,performance,audio-selector}={on,off}'
complete -c capso-cli -n '__fish_seen_subcommand_from modes' -a '{1,2,3}={on,off}'
