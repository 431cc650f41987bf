# Tries AmporaSrv on this computer and prints a table of what passed: powershell -ExecutionPolicy Bypass -File verify.ps1
#
# Versions, the test programs, and, with administrator's rights, a real run on loopback and the Windows Installer package.
# Settings and data files that are there already are put aside and come back at the end. Each result, and what the programs
# wrote, goes to the folder "results" beside this file; results\result.txt is the one to send back. Exit code: the number of
# failures. Needs Windows 10 or later, 64 bit; works in Windows PowerShell 5.1 and in PowerShell 7.
param([switch] $SkipTests) # leaves the test programs out

$ErrorActionPreference = 'Stop'
Set-StrictMode -Version 2
$here = Split-Path -Parent $MyInvocation.MyCommand.Path
$results = Join-Path $here 'results'
$settings = 'HKLM\Software\Halvex\AmporaSrv'
$userSettings = 'HKCU\Software\Halvex\AmporaSrv'
$data = Join-Path $env:ProgramData 'AmporaSrv'
$installed = Join-Path $env:ProgramFiles 'AmporaSrv'
$programs = Join-Path $here 'bin'
$rows = New-Object System.Collections.ArrayList
$started = New-Object System.Collections.ArrayList # processes that may still run

# --- Rows of the table

function Add-Row([string] $name, [string] $outcome, [string] $detail) {
    [void] $rows.Add((New-Object PSObject -Property @{ Name = $name; Outcome = $outcome; Detail = $detail }))
    Write-Host ('{0,-8} {1,-28} {2}' -f $outcome, $name, $detail)
}

function Skip-Row([string] $name, [string] $reason) { Add-Row $name 'skipped' $reason }

# Runs the block; what it returns is the detail. An exception is a failure.
function Test-Step([string] $name, [scriptblock] $block) {
    try {
        Add-Row $name 'passed' ([string] (& $block | Select-Object -Last 1))
        return $true
    } catch {
        Add-Row $name 'FAILED' $_.Exception.Message
        return $false
    }
}

function Assert-Equal($found, $expected, [string] $what) {
    if ("$found" -ne "$expected") { throw "$what is '$found', not '$expected'" }
}

# Waits until the block returns true.
function Wait-Until([string] $what, [int] $seconds, [scriptblock] $block) {
    $end = (Get-Date).AddSeconds($seconds)
    while (-not (& $block)) {
        if ((Get-Date) -gt $end) { throw "no $what within $seconds s" }
        Start-Sleep -Milliseconds 200
    }
}

# --- Programs

# Starts a program; its output goes to results\NAME.txt and results\NAME.err.txt.
function Start-Program([string] $name, [string] $file, [string[]] $arguments) {
    $options = @{
        FilePath = $file; PassThru = $true; NoNewWindow = $true
        RedirectStandardOutput = (Join-Path $results "$name.txt")
        RedirectStandardError = (Join-Path $results "$name.err.txt")
    }
    if ($arguments) { $options.ArgumentList = $arguments }
    $process = Start-Process @options
    [void] $process.Handle # without this, PowerShell 5.1 does not know the exit code afterwards
    [void] $started.Add($process)
    return $process
}

# Runs a program to its end; its exit code.
function Invoke-Program([string] $name, [string] $file, [string[]] $arguments, [int] $seconds = 60) {
    $process = Start-Program $name $file $arguments
    if (-not $process.WaitForExit($seconds * 1000)) {
        $process.Kill()
        throw "$(Split-Path -Leaf $file) has not ended within $seconds s"
    }
    return $process.ExitCode
}

function Read-Output([string] $name) {
    $text = Get-Content -Raw -Path (Join-Path $results "$name.txt")
    if ($null -eq $text) { return '' }
    return $text
}

function Assert-Success([string] $name, [string] $file, [string[]] $arguments, [int] $seconds = 60) {
    $code = Invoke-Program $name $file $arguments $seconds
    if ($code -ne 0) {
        $said = Get-Content -Raw -Path (Join-Path $results "$name.err.txt")
        throw "$(Split-Path -Leaf $file) $arguments ended with $code $said".Trim()
    }
}

# --- What is there already

function Test-Elevated {
    $identity = [Security.Principal.WindowsIdentity]::GetCurrent()
    return (New-Object Security.Principal.WindowsPrincipal $identity).IsInRole(
        [Security.Principal.WindowsBuiltInRole]::Administrator)
}

function Test-Key([string] $key) { return Test-Path -LiteralPath ($key -replace '^(HK..)\\', '$1:\') }

# Saves a key and removes it.
function Save-Key([string] $key, [string] $name) {
    $file = Join-Path $results "$name.reg"
    if (Test-Key $key) {
        Assert-Success "$name-export" 'reg.exe' @('export', $key, "`"$file`"", '/y')
        Assert-Success "$name-delete" 'reg.exe' @('delete', $key, '/f')
    }
}

function Restore-Key([string] $key, [string] $name) {
    $file = Join-Path $results "$name.reg"
    if (Test-Key $key) { Assert-Success "$name-clear" 'reg.exe' @('delete', $key, '/f') }
    if (Test-Path $file) {
        Assert-Success "$name-import" 'reg.exe' @('import', "`"$file`"")
        Remove-Item $file
    }
}

function Set-Setting([string] $name, [string] $type, [string] $value) {
    Assert-Success 'reg-add' 'reg.exe' @('add', $settings, '/v', $name, '/t', $type, '/d', $value, '/f')
}

function Get-RunningCopies { return @(Get-Process -Name amporasrv -ErrorAction SilentlyContinue) }

# --- Versions and test programs

function Test-Versions {
    $version = (Get-Content (Join-Path $here 'version.txt') | Select-Object -First 1).Trim()
    foreach ($file in Get-ChildItem $programs) {
        [void] (Test-Step "version of $($file.Name)" {
            Assert-Equal ($file.VersionInfo.FileVersion) $version 'the file version'
            Assert-Equal ($file.VersionInfo.ProductVersion) $version 'the product version'
            Assert-Equal ($file.VersionInfo.OriginalFilename) ($file.Name) 'the original name'
            $version
        })
    }
    foreach ($program in 'amporactl', 'ampora-reportd') {
        [void] (Test-Step "$program --version" {
            Assert-Success "$program-version" (Join-Path $programs "$program.exe") @('--version')
            $said = (Read-Output "$program-version").Trim()
            Assert-Equal $said "$program $version" 'what it says'
            $said
        })
    }
}

# Cases, failures and time of a test program; one that is no GoogleTest program has its exit code alone.
function Get-Summary([string] $name, [int] $code, [double] $seconds) {
    $text = Read-Output $name
    $failed = @([regex]::Matches($text, '(?m)^\[  FAILED  \] (\S+) \(\d+ ms\)'))
    $detail = 'exit code {0}, {1:0.0} s' -f $code, $seconds
    $ran = [regex]::Match($text, '(?m)^\[=+\] (\d+) tests? from .* ran')
    if ($ran.Success) { $detail = "$($ran.Groups[1].Value) cases, $($failed.Count) failed, $detail" }
    $names = ($failed | ForEach-Object { $_.Groups[1].Value }) -join ' '
    if ($code -ne 0) { throw "$detail $names".Trim() }
    if ($text.Contains('[==========]') -and -not $ran.Success) { throw "it ended early: $detail" }
    return $detail
}

function Test-Programs {
    foreach ($line in Get-Content (Join-Path $here 'tests.txt')) {
        $test, $program, $limit, $options = $line -split "`t"
        [void] (Test-Step $test {
            $watch = [Diagnostics.Stopwatch]::StartNew()
            $code = Invoke-Program $test (Join-Path $here "tests\$program") @($options) ([int] $limit)
            Get-Summary $test $code ($watch.Elapsed.TotalSeconds)
        })
    }
    foreach ($line in Get-Content (Join-Path $here 'left-out.txt')) { Skip-Row 'left out' $line }
}

# --- A real run. $folder: of the programs

function Start-ReportServer {
    $server = Start-Program 'ampora-reportd' (Join-Path $programs 'ampora-reportd.exe') @('--source', 'sample', '--port', '0')
    Wait-Until 'address of ampora-reportd' 20 { (Read-Output 'ampora-reportd') -match 'http://[\d.]+:(\d+)' }
    [void] ((Read-Output 'ampora-reportd') -match 'http://[\d.]+:(\d+)')
    Set-Setting 'Enable' 'REG_DWORD' '1'
    Set-Setting 'ApiHost' 'REG_SZ' "127.0.0.1:$($Matches[1])"
    return $server
}

function Start-Copy([string] $folder) {
    if (Test-Path $data) { Get-ChildItem $data -Filter *.dat | Remove-Item }
    $copy = Start-Program 'amporasrv' (Join-Path $folder 'amporasrv.exe') @()
    Wait-Until 'complete pass (21 data files)' 60 { @(Get-ChildItem $data -Filter *.dat -ErrorAction SilentlyContinue).Count -eq 21 }
    return $copy
}

function Assert-Ended($copy, [int] $seconds = 15) {
    if (-not $copy.WaitForExit($seconds * 1000)) { throw "amporasrv still runs $seconds s later" }
    Assert-Equal ($copy.ExitCode) 0 'its exit code'
}

function Test-Run {
    $script:copy = $null
    if (-not (Test-Step 'amporasrv makes a pass' { $script:copy = Start-Copy $programs; '21 data files' })) { return }
    $control = Join-Path $programs 'amporactl.exe'
    [void] (Test-Step 'amporactl show' {
        Assert-Success 'show' $control @('show')
        $lines = @((Read-Output 'show').Trim() -split "`n").Count
        Assert-Equal $lines 22 'the number of its lines'
        'the data files are sound'
    })
    [void] (Test-Step 'amporactl update' { Assert-Success 'update' $control @('update') })
    [void] (Test-Step 'a second copy ends' { Assert-Success 'second' (Join-Path $programs 'amporasrv.exe') @() })
    [void] (Test-Step '/Exit ends the copy' {
        Assert-Success 'exit' (Join-Path $programs 'amporasrv.exe') @('/Exit')
        Assert-Ended $script:copy
        'with exit code 0'
    })
    [void] (Test-Step 'amporactl exit without a copy' {
        Assert-Success 'exit-without' $control @('exit', '--wait')
        (Read-Output 'exit-without').Trim()
    })
}

# --- The package

function Invoke-Installer([string] $name, [string] $option, [string] $package) {
    $log = Join-Path $results "$name.log"
    $arguments = @($option, "`"$(Join-Path $here $package)`"", '/qn', '/norestart', '/l*v', "`"$log`"")
    $code = Invoke-Program $name 'msiexec.exe' $arguments 300
    if ($code -ne 0) { throw "msiexec ended with $code; see $name.log" }
}

function Get-Entry {
    $list = 'HKLM:\Software\Microsoft\Windows\CurrentVersion\Uninstall'
    return @(Get-ChildItem $list | Where-Object { $_.GetValue('DisplayName') -eq 'AmporaSrv' })
}

function Get-RunValue {
    $key = Get-Item 'HKLM:\Software\Microsoft\Windows\CurrentVersion\Run'
    return $key.GetValue('AmporaSrv')
}

function Test-OnPath {
    $path = [Environment]::GetEnvironmentVariable('Path', 'Machine')
    return @($path -split ';' | Where-Object { $_.TrimEnd('\') -eq "$installed\bin" }).Count
}

function Assert-Installed([string] $what) {
    $entry = @(Get-Entry)
    Assert-Equal ($entry.Count) 1 'the number of entries in the list of apps'
    foreach ($value in 'Publisher', 'DisplayVersion', 'InstallLocation', 'EstimatedSize', 'UninstallString', 'ReadMe') {
        if (-not $entry[0].GetValue($value)) { throw "the entry in the list of apps has no $value" }
    }
    Assert-Equal ($entry[0].GetValue('NoModify')) 1 'NoModify'
    Assert-Equal (Get-RunValue) "`"$installed\bin\amporasrv.exe`"" 'the value in Run'
    Assert-Equal (Test-OnPath) 1 'the number of places in PATH'
    foreach ($file in 'amporasrv.exe', 'amporactl.exe', 'ampora-reportd.exe') {
        $version = (Get-Item (Join-Path $installed "bin\$file")).VersionInfo.FileVersion
        Assert-Equal $version ($entry[0].GetValue('DisplayVersion')) "the version of the installed $file"
    }
    return "$what $($entry[0].GetValue('DisplayVersion')), $($entry[0].GetValue('EstimatedSize')) KB"
}

function Test-Package {
    if (-not (Test-Step 'msi: install' { Invoke-Installer 'install' '/i' 'AmporaSrv.msi'; Assert-Installed 'installed' })) { return }
    [void] (Test-Step 'msi: repair' {
        Remove-Item (Join-Path $installed 'bin\amporactl.exe')
        Invoke-Installer 'repair' '/fa' 'AmporaSrv.msi'
        Assert-Installed 'repaired'
    })
    $script:copy = $null
    [void] (Test-Step 'msi: upgrade of a running copy' {
        $script:copy = Start-Copy (Join-Path $installed 'bin')
        Invoke-Installer 'upgrade' '/i' 'AmporaSrv-newer.msi'
        Assert-Ended $script:copy
        Assert-Installed 'upgraded to'
    })
    [void] (Test-Step 'msi: uninstall' {
        $script:copy = Start-Copy (Join-Path $installed 'bin')
        Invoke-Installer 'uninstall' '/x' 'AmporaSrv-newer.msi'
        Assert-Ended $script:copy
        if (Test-Path $installed) { throw "$installed is still there" }
        Assert-Equal (@(Get-Entry).Count) 0 'the number of entries in the list of apps'
        Assert-Equal (Get-RunValue) '' 'the value in Run'
        Assert-Equal (Test-OnPath) 0 'the number of places in PATH'
        Assert-Equal (@(Get-ChildItem $data -Filter *.dat).Count) 21 'the number of data files'
        Assert-Equal ((Get-Item 'HKLM:\Software\Halvex\AmporaSrv').GetValue('Enable')) 1 'the setting Enable'
        'only the data files and settings are left'
    })
}

# --- All of it

# Puts settings and data aside, runs the block with a report server, and puts them back.
function Use-CleanMachine([scriptblock] $block) {
    $server = $null
    $aside = "$data.before-verify"
    foreach ($saved in $aside, (Join-Path $results 'machine-settings.reg'), (Join-Path $results 'user-settings.reg')) {
        if (Test-Path $saved) { throw "$saved is there from a run that was interrupted; put back what it holds first" }
    }
    try {
        Save-Key $settings 'machine-settings'
        Save-Key $userSettings 'user-settings'
        if (Test-Path $data) { Move-Item $data $aside }
        $server = Start-ReportServer
        & $block
    } finally {
        foreach ($process in $started) { if (-not $process.HasExited) { $process.Kill(); [void] $process.WaitForExit(5000) } }
        Restore-Key $settings 'machine-settings'
        Restore-Key $userSettings 'user-settings'
        if (Test-Path $data) { Remove-Item -Recurse -Force $data }
        if (Test-Path $aside) { Move-Item $aside $data }
    }
}

if (-not [Environment]::Is64BitProcess) { throw 'this needs the 64-bit PowerShell' }
New-Item -ItemType Directory -Force -Path $results | Out-Null
$elevated = Test-Elevated
Add-Row 'system' 'info' "$([Environment]::OSVersion.VersionString), PowerShell $($PSVersionTable.PSVersion), elevated: $elevated"
Test-Versions
if ($SkipTests) { Skip-Row 'test programs' 'switched off with -SkipTests' } else { Test-Programs }
if (-not $elevated) {
    Skip-Row 'real run' 'needs administrator''s rights: Enable is a setting of the machine'
    Skip-Row 'msi' 'needs administrator''s rights: it installs for the machine'
} elseif (@(Get-RunningCopies).Count -gt 0) {
    Skip-Row 'real run' 'a copy of amporasrv runs already; end it with amporactl exit, in each session'
    Skip-Row 'msi' 'a copy of amporasrv runs already'
} else {
    [void] (Test-Step 'settings and data put back' {
        Use-CleanMachine {
            Test-Run
            if (@(Get-Entry).Count -gt 0) { Skip-Row 'msi' 'AmporaSrv is installed already' } else { Test-Package }
        } | Out-Null
        'as they were'
    })
}

$failures = @($rows | Where-Object { $_.Outcome -eq 'FAILED' }).Count
$skipped = @($rows | Where-Object { $_.Outcome -eq 'skipped' }).Count
$passed = @($rows | Where-Object { $_.Outcome -eq 'passed' }).Count
$summary = "$passed passed, $failures failed, $skipped skipped"
$table = $rows | ForEach-Object { '{0,-8} {1,-28} {2}' -f $_.Outcome, $_.Name, $_.Detail }
@($table) + '' + $summary | Set-Content -Encoding UTF8 -Path (Join-Path $results 'result.txt')
Write-Host ''
Write-Host $summary
Write-Host "Please send back $(Join-Path $results 'result.txt')"
exit $failures
