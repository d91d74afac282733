@echo off
rem "Quelta check" of the start menu. The window stays, so that what was found can be read.
cmd /k ""%~dp0quelta.exe" check"
