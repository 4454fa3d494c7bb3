; The setup program of KORVENTE Velmora for 64-bit Windows. scripts/package-windows.sh calls makensis with
;   VERSION  1.112.1, from CMake's project
;   STAGE    the folder with the files as they are to be installed
;   LISTS    InstallFiles, RemoveFiles, RemoveFolders and NAME_HELD_FILES, made from what lies in STAGE
;   SIZE     of all of them, in KB
;   COMPRESSOR  lzma, or zlib where time counts
;   PICTURES the folder of setup.bmp, setup.ico and remove.ico
;   OUTFILE
; What it refuses it refuses before anything is changed, with one sentence and a code (docs/installing.md).

Unicode true
CPU amd64
SetCompressor /SOLID ${COMPRESSOR}

!include MUI2.nsh
!include LogicLib.nsh
!include FileFunc.nsh
!include Sections.nsh
!include WinVer.nsh
!include WordFunc.nsh
!include "${LISTS}"

!define PRODUCT "KORVENTE Velmora"
!define DRIVER "asio_korvente_x64.dll"
!define UNINSTALL_KEY "Software\Microsoft\Windows\CurrentVersion\Uninstall\${PRODUCT}"
; Audio software reads no more of the DLL's path.
!define HOSTS_PATH_LIMIT 127

; What the program ends with.
!define DONE 0
!define CANCELLED 1
!define IN_USE 3
!define BAD_FOLDER 4
!define NEWER_THERE 5
!define NOT_REGISTERED 6
!define UNFIT 7
!define NOT_REMOVED 8

Name "${PRODUCT}"
OutFile "${OUTFILE}"
InstallDir "$PROGRAMFILES64\${PRODUCT}"
InstallDirRegKey HKLM "${UNINSTALL_KEY}" "InstallLocation"
RequestExecutionLevel admin
ManifestSupportedOS Win10
ManifestDPIAware true
BrandingText "${PRODUCT} ${VERSION}"
ShowInstDetails nevershow
ShowUninstDetails nevershow

VIProductVersion "${VERSION}.0"
VIAddVersionKey ProductName "${PRODUCT}"
VIAddVersionKey ProductVersion "${VERSION}"
VIAddVersionKey FileDescription "${PRODUCT} setup"
VIAddVersionKey FileVersion "${VERSION}"
VIAddVersionKey LegalCopyright ""

!define MUI_ABORTWARNING
!define MUI_WELCOMEFINISHPAGE_BITMAP "${PICTURES}/setup.bmp"
!define MUI_ICON "${PICTURES}/setup.ico"
!define MUI_UNICON "${PICTURES}/remove.ico"
!define MUI_CUSTOMFUNCTION_ABORT onUserAbort
!define MUI_WELCOMEPAGE_TITLE "${PRODUCT} ${VERSION}"
!define MUI_WELCOMEPAGE_TEXT "This installs the network audio driver and its programs: the settings, a player, a finder \
of targets and a viewer of the driver's log.$\r$\n$\r$\nClose your audio software before you go on.$\r$\n$\r$\nSetup leaves your settings alone. But when the \
release is another one, the driver puts the factory's settings in their place the next time it is opened: keep a copy of \
what you have tuned."
!insertmacro MUI_PAGE_WELCOME
!define MUI_DIRECTORYPAGE_TEXT_TOP "Setup installs ${PRODUCT} into this folder. Keep its path short: audio software reads \
no more than ${HOSTS_PATH_LIMIT} characters of it."
!define MUI_PAGE_CUSTOMFUNCTION_LEAVE leaveFolder
!insertmacro MUI_PAGE_DIRECTORY
!insertmacro MUI_PAGE_INSTFILES
!define MUI_FINISHPAGE_TITLE "${PRODUCT} is installed"
!define MUI_FINISHPAGE_TEXT "Start your audio software, open its audio settings and choose the ASIO device \
${PRODUCT}. If Windows' firewall asks, allow your software on private networks: targets answer by UDP."
!define MUI_FINISHPAGE_RUN
!define MUI_FINISHPAGE_RUN_TEXT "Open the settings"
!define MUI_FINISHPAGE_RUN_FUNCTION openSettings
!define MUI_FINISHPAGE_SHOWREADME "$INSTDIR\docs\installing.txt"
!define MUI_FINISHPAGE_SHOWREADME_TEXT "Read what was installed where"
!define MUI_FINISHPAGE_SHOWREADME_NOTCHECKED
!insertmacro MUI_PAGE_FINISH

!define MUI_COMPONENTSPAGE_NODESC
!define MUI_COMPONENTSPAGE_TEXT_TOP "This removes ${PRODUCT} from this computer. Choose what goes with it, and press \
Uninstall."
!define MUI_PAGE_CUSTOMFUNCTION_SHOW un.hideSpace
!insertmacro MUI_UNPAGE_COMPONENTS
!insertmacro MUI_UNPAGE_INSTFILES
!insertmacro MUI_LANGUAGE English

Var sentence   ; what is wrong, or empty
Var before     ; the folder of an installation that is there, or empty
Var version    ; its version
Var isOrphaned ; 1: it lies in another folder, without its uninstaller
Var wasRemoved ; 1: that installation was removed on the way
Var madeAsio   ; 1 where the key of all ASIO drivers came with this one
Var madeFolder ; 1: the folder came with this attempt
Var mayGoBack  ; 1: an older version may replace a newer one
Var isRefused  ; 1: it was said why

; Says a sentence: in a box, or, silent, on standard output.
!macro SAY_FUNCTION un
Function ${un}say
    ${IfNot} ${Silent}
        MessageBox MB_OK|MB_ICONSTOP "$sentence"
        Return
    ${EndIf}
    System::Call 'kernel32::GetStdHandle(i -11) p .r0'
    ${If} $0 P<= 0
        ; Started from a prompt: that is where it is read.
        System::Call 'kernel32::AttachConsole(i -1) i .r1'
        System::Call 'kernel32::GetStdHandle(i -11) p .r0'
    ${EndIf}
    ${If} $0 P> 0
        FileWrite $0 "$sentence$\r$\n"
    ${EndIf}
FunctionEnd
!macroend
!insertmacro SAY_FUNCTION ""
!insertmacro SAY_FUNCTION "un."

!macro REFUSE un code
    StrCpy $isRefused 1
    Call ${un}say
    SetErrorLevel ${code}
    Quit
!macroend
!define Refuse `!insertmacro REFUSE ""`
!define un.Refuse `!insertmacro REFUSE "un."`

; velmora-register with the words on the stack: its code there, its sentence in $sentence.
!macro REGISTER_FUNCTION un
Function ${un}velmoraRegister
    InitPluginsDir
    ${IfNot} ${FileExists} "$PLUGINSDIR\velmora-register.exe"
        File "/oname=$PLUGINSDIR\velmora-register.exe" "${STAGE}\velmora-register.exe"
    ${EndIf}
    Exch $0
    Push $1
    Delete "$PLUGINSDIR\report.txt"
    nsExec::Exec '"$PLUGINSDIR\velmora-register.exe" --report "$PLUGINSDIR\report.txt" $0'
    Pop $0
    StrCpy $sentence ""
    ClearErrors
    FileOpen $1 "$PLUGINSDIR\report.txt" r
    ${IfNot} ${Errors}
        FileReadUTF16LE $1 $sentence
        FileClose $1
    ${Else}
        ; It did not even start.
        StrCpy $0 ${NOT_REGISTERED}
        StrCpy $sentence "The program that registers the driver cannot be run here."
    ${EndIf}
    ClearErrors
    Pop $1
    Exch $0
FunctionEnd
!macroend
!insertmacro REGISTER_FUNCTION ""
!insertmacro REGISTER_FUNCTION "un."

; As long as a program has a file open: asks again, or, silent, refuses. FOLDER is a variable or a constant.
!macro REFUSE_WHILE_HELD un FOLDER
    !define again "again_${__LINE__}_${un}"
    ${again}:
    Push 'users ${NAME_HELD_FILES_${FOLDER}}'
    Call ${un}velmoraRegister
    Pop $0
    ${If} $0 = ${IN_USE}
        ${IfNot} ${Silent}
            MessageBox MB_RETRYCANCEL|MB_ICONEXCLAMATION "$sentence" IDRETRY ${again}
        ${Else}
            Call ${un}say
        ${EndIf}
        StrCpy $isRefused 1
        SetErrorLevel ${IN_USE}
        Quit
    ${EndIf}
    !undef again
!macroend

; ---- installing ----

Function .onInit
    SetShellVarContext all
    SetRegView 64
    ${IfNot} ${AtLeastWin10}
        StrCpy $sentence "${PRODUCT} needs Windows 10 or later."
        ${Refuse} ${UNFIT}
    ${EndIf}
    UserInfo::GetAccountType
    Pop $0
    ${If} $0 != "Admin"
        StrCpy $sentence "Setup needs the rights of an administrator: choose $\"Run as administrator$\"."
        ${Refuse} ${UNFIT}
    ${EndIf}
    System::Call 'kernel32::CreateMutexW(p 0, i 0, w "Global\${PRODUCT} setup") p .r1 ?e'
    Pop $0
    ${If} $0 = 183  ; ERROR_ALREADY_EXISTS
        StrCpy $sentence "Another setup of ${PRODUCT} is running. Finish that one first."
        ${Refuse} ${IN_USE}
    ${EndIf}

    ${GetParameters} $0
    ClearErrors
    ${GetOptions} $0 "/DOWNGRADE" $1
    ${IfNot} ${Errors}
        StrCpy $mayGoBack 1
    ${EndIf}
    ReadRegStr $before HKLM "${UNINSTALL_KEY}" "InstallLocation"
    ReadRegStr $version HKLM "${UNINSTALL_KEY}" "DisplayVersion"
    ${If} $version != ""
    ${AndIf} $mayGoBack != 1
        ${VersionCompare} $version ${VERSION} $0
        ${If} $0 = 1
            StrCpy $sentence "A newer version, $version, is installed. Remove it first, or add /DOWNGRADE."
            ${If} ${Silent}
                ${Refuse} ${NEWER_THERE}
            ${EndIf}
            MessageBox MB_YESNO|MB_ICONQUESTION|MB_DEFBUTTON2 "A newer version, $version, is installed. Replace it \
by ${VERSION}? Your settings are replaced by the factory's, too, the next time the driver is opened." IDYES +3
            SetErrorLevel ${NEWER_THERE}
            Quit
        ${EndIf}
    ${EndIf}
FunctionEnd

Function onUserAbort
    SetErrorLevel ${CANCELLED}
FunctionEnd

; $sentence says what is wrong with the path of the folder, or is empty.
Function checkPath
    StrCpy $sentence ""
    StrLen $0 "$INSTDIR\${DRIVER}"
    ${If} $0 > ${HOSTS_PATH_LIMIT}
        StrCpy $sentence "This folder's path is too long: with the driver's name it has $0 characters, and audio \
software reads no more than ${HOSTS_PATH_LIMIT}. Choose a folder with a shorter path."
        Return
    ${EndIf}
    ; The same by bytes, and letters that the system's code page has not.
    Push 'fits "$INSTDIR\${DRIVER}"'
    Call velmoraRegister
    Pop $0
FunctionEnd

Function leaveFolder
    Call checkPath
    ${If} $sentence != ""
        Call say
        Abort
    ${EndIf}
FunctionEnd

; Nothing was written into it: a folder that was made for it goes again.
Function dropFolder
    ${If} $madeFolder = 1
        RMDir "$INSTDIR"
    ${EndIf}
FunctionEnd

; $sentence says why nothing can be written there, or is empty.
Function checkRoom
    StrCpy $sentence ""
    ${IfNot} ${FileExists} "$INSTDIR\*.*"
        StrCpy $madeFolder 1
    ${EndIf}
    CreateDirectory "$INSTDIR"
    ClearErrors
    FileOpen $0 "$INSTDIR\velmora-setup.tmp" w
    ${If} ${Errors}
        StrCpy $sentence "Nothing can be written into $INSTDIR. Choose another folder."
    ${Else}
        FileClose $0
        Delete "$INSTDIR\velmora-setup.tmp"
        System::Call 'kernel32::GetDiskFreeSpaceExW(w "$INSTDIR", *l .r0, p 0, p 0) i .r2'
        ; What is replaced gives no room before the new is there.
        System::Int64Op $0 / 1024
        Pop $0
        ${If} $2 <> 0
            System::Int64Op $0 < ${SIZE_AND_MORE}
            Pop $2
            ${If} $2 = 1
                StrCpy $sentence "There is too little room in $INSTDIR: ${SIZE_AND_MORE} KB are needed, and $0 KB \
are free."
            ${EndIf}
        ${EndIf}
    ${EndIf}
    ${If} $sentence != ""
        Call dropFolder
    ${EndIf}
FunctionEnd

; What this setup made, where nothing is any more that was there before.
Function undo
    ${If} $before == ""
    ${OrIf} $wasRemoved = 1
    ${OrIf} $isOrphaned = 1
        SetOutPath "$PLUGINSDIR"  ; not in the folder that is to go
        Push 'unregister "$INSTDIR\${DRIVER}"'
        Call velmoraRegister
        Pop $0
        ${If} $madeAsio = 1
            DeleteRegKey /ifempty HKLM "SOFTWARE\ASIO"
        ${EndIf}
        !insertmacro RemoveFiles "$INSTDIR"
        Delete "$INSTDIR\uninstall.exe"
        !insertmacro RemoveFolders "$INSTDIR"
        RMDir "$INSTDIR"
    ${EndIf}
FunctionEnd

; What lies before, without its uninstaller: what bears the names of our files goes, and it is said what stays.
Function clearOrphan
    !insertmacro RemoveFiles "$before"
    !insertmacro RemoveFolders "$before"
    RMDir "$before"
    ${IfNot} ${FileExists} "$before\*.*"
        Return
    ${EndIf}
    StrCpy $sentence "${PRODUCT} is installed in $INSTDIR. The uninstaller of the installation before was missing, and \
setup could not tell what else in $before is of it: look there, and delete what you do not need."
    ${If} ${Silent}
        Call say
    ${Else}
        MessageBox MB_OK|MB_ICONINFORMATION "$sentence"
    ${EndIf}
FunctionEnd

; What failed has cost more than the attempt.
Function addLoss
    ${If} $wasRemoved = 1
        StrCpy $sentence "$sentence The version that was installed before, $version, is removed already: run setup again."
    ${EndIf}
FunctionEnd

Function .onInstFailed
    ${If} $isRefused = 1
        Return
    ${EndIf}
    Call undo
    StrCpy $sentence "Not all files could be written into $INSTDIR. Look whether the disk is full, and try again."
    Call addLoss
    Call say
    SetErrorLevel ${BAD_FOLDER}
FunctionEnd

Section "-${PRODUCT}"
    Call checkPath
    ${If} $sentence != ""
        ${If} $0 = ${NOT_REGISTERED}
            ${Refuse} ${NOT_REGISTERED}
        ${EndIf}
        ${Refuse} ${BAD_FOLDER}
    ${EndIf}
    !insertmacro REFUSE_WHILE_HELD "" INSTDIR
    ${If} $before != ""
    ${AndIf} $before != $INSTDIR
        !insertmacro REFUSE_WHILE_HELD "" BEFORE
    ${EndIf}
    Call checkRoom
    ${If} $sentence != ""
        ${Refuse} ${BAD_FOLDER}
    ${EndIf}

    ; From here on something changes. Another version, or one in another folder, goes by its own uninstaller, which
    ; knows its files; the same one is written over.
    StrCpy $madeAsio 0
    ReadRegDWORD $madeAsio HKLM "${UNINSTALL_KEY}" "MadeAsioKey"
    ${If} $before != ""
    ${AndIf} ${FileExists} "$before\uninstall.exe"
        ${If} $before != $INSTDIR
        ${OrIf} $version != "${VERSION}"
            ClearErrors
            ExecWait '"$before\uninstall.exe" /S _?=$before' $0
            ${If} ${Errors}
                StrCpy $1 "cannot be run"
            ${Else}
                StrCpy $1 "ended with $0"
            ${EndIf}
            ${If} $1 != "ended with 0"
                Call dropFolder
                StrCpy $sentence "The version that is installed, $version in $before, could not be removed: its \
uninstaller $1. Remove it in Windows' settings, then run setup again."
                ${Refuse} ${NOT_REMOVED}
            ${EndIf}
            ; It cannot take itself away while it runs.
            Delete "$before\uninstall.exe"
            RMDir "$before"
            StrCpy $wasRemoved 1
        ${EndIf}
    ${ElseIf} $before != ""
    ${AndIf} $before != $INSTDIR
        StrCpy $isOrphaned 1
    ${EndIf}
    System::Call 'advapi32::RegOpenKeyExW(p -2147483646, w "SOFTWARE\ASIO", i 0, i 0x20119, *p .r1) i .r0'
    ${If} $0 = 0
        System::Call 'advapi32::RegCloseKey(p r1)'
    ${Else}
        StrCpy $madeAsio 1
    ${EndIf}

    ClearErrors
    SetOverwrite try
    !insertmacro InstallFiles
    ${If} ${Errors}
        Abort  ; .onInstFailed tells
    ${EndIf}
    SetOutPath "$PLUGINSDIR"  ; no program that is started stays in the folder
    Push 'register "$INSTDIR\${DRIVER}"'
    Call velmoraRegister
    Pop $0
    ${If} $0 <> 0
        Push $sentence
        Call undo
        Pop $sentence
        Call addLoss
        ${Refuse} ${NOT_REGISTERED}
    ${EndIf}
    ClearErrors
    WriteUninstaller "$INSTDIR\uninstall.exe"
    ${If} ${Errors}
        Abort
    ${EndIf}

    CreateDirectory "$SMPROGRAMS\${PRODUCT}"
    SetOutPath "$INSTDIR"
    CreateShortcut "$SMPROGRAMS\${PRODUCT}\Velmora settings.lnk" "$INSTDIR\velmora-settings.exe"
    CreateShortcut "$SMPROGRAMS\${PRODUCT}\Velmora log.lnk" "$INSTDIR\velmora-log.exe"
    CreateShortcut "$SMPROGRAMS\${PRODUCT}\Velmora documents.lnk" "$INSTDIR\docs"

    WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayName" "${PRODUCT}"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayVersion" "${VERSION}"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "Publisher" "KORVENTE"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "DisplayIcon" "$INSTDIR\uninstall.exe,0"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "InstallLocation" "$INSTDIR"
    WriteRegStr HKLM "${UNINSTALL_KEY}" "UninstallString" '"$INSTDIR\uninstall.exe"'
    WriteRegStr HKLM "${UNINSTALL_KEY}" "QuietUninstallString" '"$INSTDIR\uninstall.exe" /S'
    WriteRegDWORD HKLM "${UNINSTALL_KEY}" "EstimatedSize" ${SIZE}
    WriteRegDWORD HKLM "${UNINSTALL_KEY}" "NoModify" 1
    WriteRegDWORD HKLM "${UNINSTALL_KEY}" "NoRepair" 1
    WriteRegDWORD HKLM "${UNINSTALL_KEY}" "MadeAsioKey" $madeAsio
    SetOutPath "$PLUGINSDIR"
    ${If} $isOrphaned = 1
        Call clearOrphan
    ${EndIf}
SectionEnd

; By way of the shell, so that the settings are those of the person and not of the administrator.
Function openSettings
    Exec '"$WINDIR\explorer.exe" "$INSTDIR\velmora-settings.exe"'
FunctionEnd

; ---- removing ----

; Nothing needs room where something goes.
Function un.hideSpace
    ShowWindow $mui.ComponentsPage.SpaceRequired ${SW_HIDE}
FunctionEnd

Section "un.${PRODUCT}" removesAll
    SectionIn RO
    InitPluginsDir
    SetOutPath "$PLUGINSDIR"  ; not in the folder that is to go
    !insertmacro REFUSE_WHILE_HELD "un." INSTDIR
    Push 'unregister "$INSTDIR\${DRIVER}"'
    Call un.velmoraRegister
    Pop $0
    ; A registration that leads elsewhere is somebody else's, and stays.
    ${If} $0 <> 0
    ${AndIf} $0 <> 5
        ${un.Refuse} ${NOT_REGISTERED}
    ${EndIf}
    ReadRegDWORD $0 HKLM "${UNINSTALL_KEY}" "MadeAsioKey"
    ${If} $0 = 1
        DeleteRegKey /ifempty HKLM "SOFTWARE\ASIO"
    ${EndIf}

    ClearErrors
    !insertmacro RemoveFiles "$INSTDIR"
    ${If} ${Errors}
        StrCpy $sentence "Not all files in $INSTDIR could be removed. See whether they are write-protected, and try again."
        ${un.Refuse} ${BAD_FOLDER}
    ${EndIf}
    !insertmacro RemoveFolders "$INSTDIR"
    Delete "$SMPROGRAMS\${PRODUCT}\Velmora settings.lnk"
    Delete "$SMPROGRAMS\${PRODUCT}\Velmora log.lnk"
    Delete "$SMPROGRAMS\${PRODUCT}\Velmora documents.lnk"
    RMDir "$SMPROGRAMS\${PRODUCT}"
    DeleteRegKey HKLM "${UNINSTALL_KEY}"
    Delete "$INSTDIR\uninstall.exe"
    RMDir "$INSTDIR"
SectionEnd

Section /o "un.My settings" removesSettings
    SetShellVarContext current
    Delete "$APPDATA\${PRODUCT}\setting.inf"
    Delete "$APPDATA\${PRODUCT}\debug.inf"
    RMDir "$APPDATA\${PRODUCT}"
    SetShellVarContext all
SectionEnd

Function un.onInit
    SetShellVarContext all
    SetRegView 64
    UserInfo::GetAccountType
    Pop $0
    ${If} $0 != "Admin"
        StrCpy $sentence "This needs the rights of an administrator: choose $\"Run as administrator$\"."
        ${un.Refuse} ${UNFIT}
    ${EndIf}
    ${GetParameters} $0
    ClearErrors
    ${GetOptions} $0 "/SETTINGS" $1
    ${IfNot} ${Errors}
        !insertmacro SelectSection ${removesSettings}
    ${EndIf}
FunctionEnd
