# The pattern set that the engine is delivered with: the standard anti-virus test file, which is harmless
# and made for showing that a scanner works. Its text is never whole in this folder: the pattern is in two
# pieces and has wildcards.
kind virus
version 100

hex Test-File 58 35 4F 21 50 25 40 41 50 5B 34 5C 50 5A 58 35 34 28 50 5E 29 37 43 43 29 37 7D 24 45 49 43 41 52 2D \
    53 54 41 4E 44 41 52 44 2D 41 4E 54 49 56 49 52 55 53 2D ?? ?? ?? ?? 2D 46 49 4C 45 21 24 48 2B 48 2A

sha256 Test-File size=68 275a021bbfb6489e54d471899f7db9d1663fc695ec2fe2a2c4538aabf651fd0f
