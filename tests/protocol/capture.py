"""A relay between a client and a server that writes what goes by as a capture file, as if it had been taken from the
network. Needs no privilege."""
import contextlib
import socket
import struct
import threading
import time

SYN, FIN, ACK = 2, 1, 16
LINKTYPE_RAW = 101
FIRST_CLIENT_PORT = 40_000


class Capture:
    """Listens on `port`."""

    def __init__(self, server_port):
        self._server_port = server_port
        self._passed, self._lock = [], threading.Lock()
        self._listener = socket.create_server(("127.0.0.1", 0))
        self.port = self._listener.getsockname()[1]
        threading.Thread(target=self._accept, daemon=True).start()

    def write(self, path, port, segment=1400, first=0, kept=1 << 16):
        """What has gone by so far. `port` is the server's in the file, `segment` the most bytes of a packet. The packets
        before `first` are left out, and of each all but its first `kept` bytes."""
        with open(path, "wb") as file:
            file.write(struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 0x40000, LINKTYPE_RAW))
            for moment, packet in self._packets(port, segment)[first:]:
                file.write(struct.pack("<IIII", int(moment), int(moment % 1 * 1e6), len(packet[:kept]), len(packet)))
                file.write(packet[:kept])

    def _accept(self):
        for number in range(10_000):
            client = self._listener.accept()[0]
            server = socket.create_connection(("127.0.0.1", self._server_port))
            self.note(number, False, SYN, b"")
            self.note(number, True, SYN | ACK, b"")
            for pair in ((client, server, False), (server, client, True)):
                threading.Thread(target=self._pass_on, args=(number, *pair), daemon=True).start()

    def _pass_on(self, connection, source, target, is_reply):
        with contextlib.suppress(OSError):
            while data := source.recv(1 << 20):
                self.note(connection, is_reply, ACK, data)
                target.sendall(data)
        self.note(connection, is_reply, FIN | ACK, b"")
        with contextlib.suppress(OSError):
            target.shutdown(socket.SHUT_WR)

    def note(self, connection, is_reply, flags, data):
        """Takes down `data`, which went by just now."""
        with self._lock:
            last = self._passed[-1] if self._passed else None
            if last and data and last[-1] and last[1:3] == (connection, is_reply):
                last[-1].extend(data)
            else:
                self._passed.append((time.time(), connection, is_reply, flags, bytearray(data)))

    def _packets(self, port, segment):
        packets, sent = [], {}
        with self._lock:
            passed = [(*start, bytes(data)) for *start, data in self._passed]
        for moment, connection, is_reply, flags, data in passed:
            here, there = (connection, is_reply), (connection, not is_reply)
            for start in range(0, max(len(data), 1), segment):
                part = data[start:start + segment]
                header = self._header(connection, is_reply, port, len(part)) + struct.pack(
                    ">IIBBHHH", sent.get(here, 1000), sent.get(there, 1000), 5 << 4, flags, 0xFFFF, 0, 0)
                packets.append((moment, header + part))
                sent[here] = sent.get(here, 1000) + len(part) + (flags & (SYN | FIN) != 0)
        return packets

    @staticmethod
    def _header(connection, is_reply, port, size):
        client, server = (bytes((10, 0, 0, 1)), FIRST_CLIENT_PORT + connection), (bytes((10, 0, 0, 2)), port)
        source, target = (server, client) if is_reply else (client, server)
        return struct.pack(">BBHHHBBH4s4sHH", 0x45, 0, 40 + size, 0, 0, 64, 6, 0, source[0], target[0], source[1], target[1])
