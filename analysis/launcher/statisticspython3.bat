@echo off
rem The host's Python launcher on Windows: runs the python found on the PATH with the caller's
rem arguments exactly as given, and ends with python's exit code.
python %*
exit /b %ERRORLEVEL%
