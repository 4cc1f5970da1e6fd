"""Answers queries of `qiven find` for hosts that are too many for one process each.   responder.py COUNT"""
import random
import sys
import time

import places  # noqa: F401: its path has segment
import segment


def main():
    count = int(sys.argv[1])
    answers = [segment.answer(b"host%d" % i, x48=i) for i in range(count)]
    with segment.Hosts(lambda number, query: random.sample(answers, count)):
        time.sleep(3600)


if __name__ == "__main__":
    main()
