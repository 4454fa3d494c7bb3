@echo off
rem Registers the driver where this folder lies. Codes: docs\installing.txt.
rem   /S  says one sentence and does not wait for a key
setlocal
set "silent=0"
if /i "%~1"=="/S" set "silent=1"
set "register=%~dp0velmora-register.exe"
set "code=4"

if exist "%register%" goto unpacked
echo Unpack the whole zip into a folder that is to stay, and start install.cmd there.
goto end

:unpacked
reg query "HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall\KORVENTE Velmora" /reg:64 >nul 2>&1
if errorlevel 1 goto free
echo KORVENTE Velmora is installed by its setup program already. Remove that first, in Windows' settings.
set "code=5"
goto end

:free
"%register%" register "%~dp0asio_korvente_x64.dll"
set "code=%errorlevel%"
if not "%code%"=="0" goto end
if "%silent%"=="1" goto end
echo.
echo KORVENTE Velmora is installed. Leave this folder where it is; audio software finds the driver in it.
echo To remove it, start uninstall.cmd and then delete the folder.

:end
if "%silent%"=="0" pause
exit /b %code%
