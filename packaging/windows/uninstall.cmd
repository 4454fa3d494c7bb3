@echo off
rem Takes the registration of the driver in this folder back. Codes: docs\installing.txt.
rem   /S         says one sentence and does not wait for a key
rem   /SETTINGS  removes your settings too
setlocal
rem Before the words are taken: "shift" takes the name of this script with them.
set "here=%~dp0"
set "silent=0"
set "settings=0"
:words
if "%~1"=="" goto begin
if /i "%~1"=="/S" set "silent=1"
if /i "%~1"=="/SETTINGS" set "settings=1"
shift
goto words

:begin
set "register=%here%velmora-register.exe"
set "code=4"
if exist "%register%" goto unpacked
echo velmora-register.exe is missing in this folder. Unpack the zip again, and start uninstall.cmd there.
goto end

:unpacked
"%register%" users "%here%asio_korvente_x64.dll" "%here%velmora-settings.exe" "%here%velmora-play.exe" "%here%velmora-find.exe" "%here%velmora-log.exe"
set "code=%errorlevel%"
if not "%code%"=="0" goto end
"%register%" unregister "%here%asio_korvente_x64.dll"
set "code=%errorlevel%"
if not "%code%"=="0" goto end
if "%settings%"=="0" goto done
del /q "%APPDATA%\KORVENTE Velmora\setting.inf" 2>nul
del /q "%APPDATA%\KORVENTE Velmora\debug.inf" 2>nul
rd "%APPDATA%\KORVENTE Velmora" 2>nul

:done
if "%silent%"=="1" goto end
echo.
echo KORVENTE Velmora is removed. You can delete this folder now.

:end
if "%silent%"=="0" pause
exit /b %code%
