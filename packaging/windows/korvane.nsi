; The installer: program, server for 64-bit callers and, where Windows runs them, for 32-bit ones, header, documents.
; Defined by the script that calls it: VERSION, TREE (what is installed), OUTPUT.
Unicode true
Target amd64-unicode
SetCompressor /SOLID lzma
Name "Korvane ${VERSION}"
OutFile "${OUTPUT}"
InstallDir "$PROGRAMFILES64\Korvane"
RequestExecutionLevel admin
ShowInstDetails show
Page directory
Page instfiles
UninstPage uninstConfirm
UninstPage instfiles
!define ENTRY "Software\Microsoft\Windows\CurrentVersion\Uninstall\Korvane"

; Runs the registration of one server; a failure ends the installation with a code, silent or not.
!macro register SYSTEM LIBRARY
  ExecWait '"${SYSTEM}\regsvr32.exe" /s "$INSTDIR\${LIBRARY}"' $0
  IntCmp $0 0 +4
  DetailPrint "$INSTDIR\${LIBRARY} could not be registered ($0)"
  SetErrorLevel 2
  Abort
!macroend

Section
  SetRegView 64
  SetOutPath "$INSTDIR"
  File /r "${TREE}/*"
  !insertmacro register "$SYSDIR" "bin\Korvane.dll"
  IfFileExists "$WINDIR\SysWOW64\regsvr32.exe" 0 +2
  ExecWait '"$WINDIR\SysWOW64\regsvr32.exe" /s "$INSTDIR\bin32\Korvane.dll"'
  WriteUninstaller "$INSTDIR\uninstall.exe"
  WriteRegStr HKLM "${ENTRY}" "DisplayName" "Korvane"
  WriteRegStr HKLM "${ENTRY}" "DisplayVersion" "${VERSION}"
  WriteRegStr HKLM "${ENTRY}" "UninstallString" '"$INSTDIR\uninstall.exe"'
  WriteRegStr HKLM "${ENTRY}" "QuietUninstallString" '"$INSTDIR\uninstall.exe" /S'
SectionEnd

Section Uninstall
  SetRegView 64
  ExecWait '"$SYSDIR\regsvr32.exe" /s /u "$INSTDIR\bin\Korvane.dll"'
  IfFileExists "$WINDIR\SysWOW64\regsvr32.exe" 0 +2
  ExecWait '"$WINDIR\SysWOW64\regsvr32.exe" /s /u "$INSTDIR\bin32\Korvane.dll"'
  DeleteRegKey HKLM "${ENTRY}"
  ; What was installed and nothing else, should somebody keep files of their own there.
  RMDir /r "$INSTDIR\bin"
  RMDir /r "$INSTDIR\bin32"
  RMDir /r "$INSTDIR\include"
  RMDir /r "$INSTDIR\share"
  Delete "$INSTDIR\NOTICES.txt"
  Delete "$INSTDIR\uninstall.exe"
  RMDir "$INSTDIR"
SectionEnd
