@echo off
rem The module tests' launcher: records the command line it was started with, exactly as cmd.exe
rem hands it over, then runs the stand-in analysis with the same arguments.
>>"%~dp0launcher-received.txt" echo %0 %*
"%~dp0standin-analysis.exe" %*
exit /b %ERRORLEVEL%
