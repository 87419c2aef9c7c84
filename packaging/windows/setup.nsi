; The setup for one user, without administrator rights: files, an entry in the menu, one in the list of programs.
; packaging/windows/package calls makensis with
;   VERSION, OUTPUT, LICENCE, ICON
;   FILES       a script that names every file twice: the macros InstallFiles and RemoveFiles
;   SIZE        of all files, in KiB
; Silent: capso-config-VERSION-setup.exe /S [/D=folder], and uninstall.exe /S

Unicode true
Target amd64-unicode
!include MUI2.nsh
!include "${FILES}"

!define LIST "Software\Microsoft\Windows\CurrentVersion\Uninstall"
!define KEY "${LIST}\CapsoConfig"

Name "Capso Config"
OutFile "${OUTPUT}"
RequestExecutionLevel user
ManifestDPIAware true
ManifestSupportedOS all
SetCompressor /SOLID lzma
InstallDir "$LOCALAPPDATA\Programs\Capso Config"
InstallDirRegKey HKCU "${KEY}" "InstallLocation"
BrandingText " "

VIProductVersion "${VERSION}.0"
VIFileVersion "${VERSION}.0"
VIAddVersionKey ProductName "Capso Config"
VIAddVersionKey ProductVersion "${VERSION}"
VIAddVersionKey FileVersion "${VERSION}"
VIAddVersionKey FileDescription "Capso Config Setup"
VIAddVersionKey CompanyName "The Capso Config developers"
VIAddVersionKey LegalCopyright "MIT licence"

!define MUI_ICON "${ICON}"
!define MUI_UNICON "${ICON}"
!define MUI_FINISHPAGE_RUN "$INSTDIR\capso-config.exe"
!insertmacro MUI_PAGE_LICENSE "${LICENCE}"
!insertmacro MUI_PAGE_DIRECTORY
!insertmacro MUI_PAGE_INSTFILES
!insertmacro MUI_PAGE_FINISH
!insertmacro MUI_UNPAGE_CONFIRM
!insertmacro MUI_UNPAGE_INSTFILES
!insertmacro MUI_LANGUAGE English

; A program that runs cannot be replaced or removed, and one that updates a device must not be ended. Each is asked for
; before anything is touched.
!macro RefuseWhileRunning PROGRAM NAME
    again_${PROGRAM}:
    IfFileExists "$INSTDIR\${PROGRAM}.exe" 0 free_${PROGRAM}
    ClearErrors
    FileOpen $0 "$INSTDIR\${PROGRAM}.exe" a
    IfErrors 0 closed_${PROGRAM}
    MessageBox MB_RETRYCANCEL|MB_ICONEXCLAMATION "${NAME} is running. Close it first." /SD IDCANCEL IDRETRY again_${PROGRAM}
    SetErrorLevel 2
    Quit
    closed_${PROGRAM}:
    FileClose $0
    free_${PROGRAM}:
!macroend

Section
    !insertmacro RefuseWhileRunning capso-config "Capso Config"
    !insertmacro RefuseWhileRunning capso-cli capso-cli
    ; What an earlier version has left there and this one has no more.
    IfFileExists "$INSTDIR\uninstall.exe" 0 +2
    ExecWait '"$INSTDIR\uninstall.exe" /S _?=$INSTDIR'

    !insertmacro InstallFiles
    SetOutPath "$INSTDIR"
    WriteUninstaller "$INSTDIR\uninstall.exe"
    CreateShortcut "$SMPROGRAMS\Capso Config.lnk" "$INSTDIR\capso-config.exe"

    WriteRegStr HKCU "${KEY}" "DisplayName" "Capso Config"
    WriteRegStr HKCU "${KEY}" "DisplayVersion" "${VERSION}"
    WriteRegStr HKCU "${KEY}" "DisplayIcon" "$INSTDIR\capso-config.exe"
    WriteRegStr HKCU "${KEY}" "Publisher" "The Capso Config developers"
    WriteRegStr HKCU "${KEY}" "InstallLocation" "$INSTDIR"
    WriteRegStr HKCU "${KEY}" "UninstallString" '"$INSTDIR\uninstall.exe"'
    WriteRegStr HKCU "${KEY}" "QuietUninstallString" '"$INSTDIR\uninstall.exe" /S'
    WriteRegDWORD HKCU "${KEY}" "EstimatedSize" ${SIZE}
    WriteRegDWORD HKCU "${KEY}" "NoModify" 1
    WriteRegDWORD HKCU "${KEY}" "NoRepair" 1
SectionEnd

Section Uninstall
    !insertmacro RefuseWhileRunning capso-config "Capso Config"
    !insertmacro RefuseWhileRunning capso-cli capso-cli
    ; By name and not the folder as a whole, which may hold what somebody else has put there: libwdi.dll, for one.
    !insertmacro RemoveFiles
    Delete "$INSTDIR\uninstall.exe"
    Delete "$SMPROGRAMS\Capso Config.lnk"
    SetOutPath "$TEMP"
    RMDir "$INSTDIR"
    RMDir "$LOCALAPPDATA\Programs" ; only if nothing is in it
    DeleteRegKey HKCU "${KEY}"
    DeleteRegKey /ifempty HKCU "${LIST}"
SectionEnd
