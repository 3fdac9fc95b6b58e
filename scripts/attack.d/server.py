"""A PostgreSQL server that is not one: server.py PORT-FILE silent|mute|columns|pooler

silent: takes connections and never says a word. mute: lets everybody in, and says no more. columns: answers each query
with one row of one column, whatever was asked for. pooler: the same, but refuses clients that bring server options. Writes the port that it listens on into PORT-FILE.
"""
import socket
import struct
import sys
import threading


def message(kind, body):
    return kind + struct.pack("!i", len(body) + 4) + body


READY = message(b"Z", b"I")
COLUMN = message(b"T", struct.pack("!h", 1) + b"id\0" + struct.pack("!ihihih", 0, 0, 23, 4, -1, 0))
ROW = message(b"D", struct.pack("!hi", 1, 1) + b"7")


def read(connection, size):
    data = b""
    while len(data) < size:
        piece = connection.recv(size - len(data))
        if not piece:
            raise ConnectionError
        data += piece
    return data


def serve(connection):
    try:
        while True:  # the start-up packet; encryption is declined
            size = struct.unpack("!i", read(connection, 4))[0]
            packet = read(connection, size - 4)
            if struct.unpack("!i", packet[:4])[0] == 196608:
                break
            connection.sendall(b"N")
        if sys.argv[2] == "pooler" and b"\0options\0" in packet:
            error = b"SFATAL\0C08P01\0Munsupported startup parameter: options\0\0"
            connection.sendall(message(b"E", error))
            return
        connection.sendall(message(b"R", struct.pack("!i", 0)) + READY)
        while True:
            kind = read(connection, 1)
            read(connection, struct.unpack("!i", read(connection, 4))[0] - 4)
            if kind == b"X":
                return
            if sys.argv[2] != "mute":
                connection.sendall(COLUMN + ROW + message(b"C", b"SELECT 1\0") + READY)
    except OSError:
        pass
    finally:
        connection.close()


listener = socket.create_server(("127.0.0.1", 0), backlog=100)
with open(sys.argv[1], "w") as file:
    file.write(str(listener.getsockname()[1]))
kept = []
while True:
    client = listener.accept()[0]
    if sys.argv[2] == "silent":
        kept.append(client)
    else:
        threading.Thread(target=serve, args=(client,), daemon=True).start()
