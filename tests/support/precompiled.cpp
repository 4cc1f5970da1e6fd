// Carries the precompiled header of the tests; a program needs a source.
