# Tests of the vrx program, started from outside.
