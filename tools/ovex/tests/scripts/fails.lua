-- Fails as a script does when the board refuses something.
error('the board said no')
