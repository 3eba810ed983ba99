"""confine.py UID CPU_SECONDS COMMAND...: runs a program whose faults nobody has foreseen.

Started by sandbox.py as the first process of its own process and network namespaces, so that the end of this
process ends all that the program has left behind.  UID -: the user stays who he is.
"""
import fcntl
import os
import resource
import signal
import socket
import struct
import sys

MEBIBYTE = 1 << 20
FILE = 1200 * MEBIBYTE  # a test makes a sparse one of 1100 million bytes
PROCESSES = 200
IFF_UP, SIOCSIFFLAGS, SIOCSIFADDR = 1, 0x8914, 0x8916
ADDRESS = "192.0.2.1"  # besides the loopback's, whose clients have no limits


def raise_loopback():
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as probe:
        fcntl.ioctl(probe, SIOCSIFFLAGS, struct.pack("16sh14x", b"lo", IFF_UP))
        fcntl.ioctl(probe, SIOCSIFADDR,
                    struct.pack("16shH4s8x", b"lo:1", socket.AF_INET, 0, socket.inet_aton(ADDRESS)))


def limit(cpu_seconds):
    for what, most in ((resource.RLIMIT_CPU, cpu_seconds), (resource.RLIMIT_FSIZE, FILE),
                       (resource.RLIMIT_AS, 4096 * MEBIBYTE), (resource.RLIMIT_CORE, 0),
                       (resource.RLIMIT_NPROC, PROCESSES)):
        resource.setrlimit(what, (most, most))


def main():
    uid, cpu_seconds, command = sys.argv[1], int(sys.argv[2]), sys.argv[3:]
    raise_loopback()
    child = os.fork()
    if child == 0:
        limit(cpu_seconds)
        # By this interpreter, or by a shell's background job, and then by all that it starts.
        for ignored in (signal.SIGPIPE, signal.SIGXFSZ, signal.SIGINT, signal.SIGQUIT):
            signal.signal(ignored, signal.SIG_DFL)
        if uid != "-":  # root is bound by no number of processes; the tree may stand where only root can read
            command = ["setpriv", f"--reuid={uid}", f"--regid={uid}", "--clear-groups", "--inh-caps=+dac_override",
                       "--ambient-caps=+dac_override", *command]
        os.execvp(command[0], command)
    while True:
        pid, status = os.wait()  # and whoever was left without a parent
        if pid == child:
            sys.exit(os.waitstatus_to_exitcode(status) & 0xFF)


main()
