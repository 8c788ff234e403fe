# Tests of the channel and the talker against scripted servers.
