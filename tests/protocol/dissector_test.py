#!/usr/bin/env python3
"""Wireshark's dissector names what the Python client and a server say to each other, however it is cut into packets.

    dissector_test.py SERVER SOURCE_TREE
"""
import os
import re
import shutil
import struct
import subprocess
import sys
import tempfile
import time

import capture
import client_test
import server
import tlm

PORT = 20317
CALL = struct.Struct(">10I")


def tshark(path, *options):
    done = subprocess.run(["tshark", "-X", f"lua_script:{sys.argv[2]}/tools/wireshark/tlm.lua", "-r", path, *options],
                          capture_output=True, timeout=120)
    text = (done.stdout + done.stderr).decode("utf-8", "replace")
    assert done.returncode == 0 and "Lua" not in text, text[-2000:]
    return text


def messages(path, *options):
    """The decoded text of each message, without what depends on the packets."""
    lines = [line for line in tshark(path, "-V", "-O", "tlm", *options).splitlines()
             if re.match(r"Job manager, | {4}", line) and not re.search(r"[Ss]egment| is in: |Time since", line)]
    return re.split(r"\n(?=Job manager)", "\n".join(lines))


def rows(path, *fields):
    """The values of these fields in each packet that has the first of them."""
    options = [option for field in fields for option in ("-e", field)]
    lines = tshark(path, "-2", "-T", "fields", "-E", "separator=|", *options).splitlines()
    return [line.split("|") for line in lines if line.count("|") == len(fields) - 1 and line.split("|")[0]]


def of(name, texts):
    return [text for text in texts if text.startswith(f"Job manager, {name}\n")]


def has(text, *lines):
    there = [line.strip(" []") for line in text.splitlines()]
    for line in lines:
        assert line in there, f"no {line!r} in\n{text[:1500]}"


def same(texts, others):
    assert len(texts) == len(others), (len(texts), len(others))
    for text, other in zip(texts, others):
        assert text == other, f"{text[:1500]}\nis not\n{other[:1500]}"


def every_operation(path, texts):
    names = {operation[0] for operation in tlm.OPERATIONS.values()}
    assert len(names) == 49
    for name in names:
        assert of(f"Call {name}", texts), name
        assert of(f"Reply {name}", texts) or name == "Shutdown", name
    assert not [text for text in texts if "Malformed" in text or "not in the capture" in text or "drops" in text]
    frames = rows(path, "tlm.operation", "frame.number", "tlm.reply_in", "tlm.call_in")
    replies = {(call, frame) for _, frame, _, calls in frames for call in calls.split(",") if call}
    for _, frame, answers, _ in frames:
        assert all((frame, answer) in replies for answer in answers.split(",") if answer), frame
    assert len(replies) > 150, len(replies)


def the_fields(texts, home):
    has(of("Call Hello", texts)[1], "version_token: plm300", "client_host: workstation", "callback_port: 0",
        "Program: 0x514a4d50", "Procedure: 1", "Message type: CALL (0)")
    has(of("Reply Hello", texts)[1], "Accepted status: SUCCESS (0)", "found: True")
    has(of("Reply Hello SYSTEM_ERR", texts)[0], "Accepted status: SYSTEM_ERR (5)")
    has(of("Call SubmitJob", texts)[1], f"work_dir: {home}/client/", "input_file: in.dat", "result_stem: plate",
        "client_note: a note", "run_class: RUN_AT_ONCE (0)", "complete_on_failure: True", "predecessor: 0")
    has(of("Call SetEnvironment", texts)[0], "variables: 2", "name: TLM_TEST_A", "value: ä", "value: 2")
    has(of("Call CheckClientFiles", texts)[1], f"entries: 9:0:{home}/client/none")
    has(of("Call UpdateClientFiles", texts)[0], "offset: 11", f"destination: {of_directory(texts)}/in.dat", "size: 10")
    has(of("Call SetDefaultPriority", texts)[0], "priority: 4")
    has(of("Reply procedure 50 PROC_UNAVAIL", texts)[0], "Accepted status: PROC_UNAVAIL (3)")
    puts = of("Call PutFiles", texts)
    assert [put.count("Record: ") for put in puts] == [1, 1, 1, 7, 1, 4]
    has(puts[0], "files: 3", "size: 70001", "size: 0", "size: 3")
    results = of("Reply RequestResults", texts)[0]
    assert len(re.findall(r"Record: \d", results)) > 10, results[:1000]
    has(results, "size: 70001")


def of_directory(texts):
    return re.search(r"server_directory: (\S+)", of("Reply MapClientDirectory", texts)[0])[1]


def raw_call(xid, program=0x514A4D50, number=0, arguments=b""):
    return CALL.pack(0x80000000 + 40 + len(arguments), xid, 0, 2, program, 1, number, 0, 0, 0)[:40] + bytes(4) + arguments


def hand_made(folder, *pieces, reply=b""):
    """The messages of a capture of one connection with these packets of its client, after each one of `reply`."""
    made, path = capture.Capture(0), f"{folder}/made.pcap"
    made.note(0, False, capture.SYN, b"")
    for piece in pieces:
        made.note(0, False, capture.ACK, piece)
        made.note(0, True, capture.ACK, reply)
    made.write(path, PORT)
    return messages(path, "-2")


def what_is_no_message(folder):
    null, noise = raw_call(7), bytes(range(256)) * 5
    assert len(null) == 44
    texts = hand_made(folder, null + raw_call(8) + raw_call(9, number=17))
    assert [text.splitlines()[0] for text in texts] == ["Job manager, Call null"] * 2 + ["Job manager, Call Shutdown"], texts
    for bad in (noise, b"\xff" * 500, b"GET / HTTP/1.0\r\n\r\n" * 9, b"\x80\0\0\x28" + b"\xff" * 40, bytes(60_000)):
        texts = hand_made(folder, bad, null)
        assert any("null" in text for text in texts) or "continuation" in texts[0], texts
    strange = hand_made(folder, raw_call(1, number=3, arguments=b"\x7f\xff\xff\xff"), null)
    has(strange[0], "Operation: ClientFileExists")
    assert "Malformed: a text of 2147483647 bytes" in strange[0] and "null" in strange[1], strange
    split = b"".join(b"\0\0\0\1" + bytes([byte]) for byte in b"\0\0\4\0" + b"x" * 1024) + b"\x80\0\0\0"
    pieces = hand_made(folder, b"\0\0\0\x28" + raw_call(2, number=3)[4:] + split, null)
    assert "x" * 200 in pieces[0] and "30 records more" in pieces[0] and "null" in pieces[1], pieces[0][-900:]
    early = hand_made(folder, raw_call(1, number=3, arguments=b"\0\0\1\0" + bytes(8)), null)
    assert "it ends too early: another call begins" in early[0] and "null" in early[1], early
    empty = hand_made(folder, b"\0\0\0\x28" + raw_call(2, number=3)[4:] + bytes(5000))[0]
    assert "Malformed: empty fragments without end" in empty, empty
    reply = b"\x80\0\0\x18" + raw_call(7)[4:8] + b"\0\0\0\1" + bytes(16)
    hand_made(folder, null, null, reply=reply)  # one xid for both
    assert rows(f"{folder}/made.pcap", "frame.number", "tlm.reply_in", "tlm.call_in")[1:] == [
        ["2", "3", ""], ["3", "", "2"], ["4", "5", ""], ["5", "", "4"]]
    surplus = hand_made(folder, raw_call(1, number=17, arguments=b"more"))[0]
    assert "The receiver drops what follows in the record" in surplus, surplus


def large_file(folder, port, home):
    line, path = capture.Capture(port), f"{folder}/large.pcap"
    client_test.write(f"{home}/client/large", bytes(16 << 20))
    with tlm.JobManager(port=line.port) as client:
        client.hello("plm300", "workstation", 0)
        directory, _ = client.map_client_directory(f"{home}/client/", "")
        client.put_files([tlm.FileItem(f"{directory}/large", f"{home}/client/large")])
    line.write(path, PORT)
    begin = time.monotonic()
    has(of("Call PutFiles", messages(path))[0], f"size: {16 << 20}")
    assert time.monotonic() - begin < 30


def main():
    if not shutil.which("tshark"):
        sys.exit(77)
    with tempfile.TemporaryDirectory() as folder, server.Server(sys.argv[1], ORPC_PACKET_SIZE="4096") as job_manager:
        line, path = capture.Capture(job_manager.port), f"{folder}/all.pcap"
        for tlm._PACKET_SIZE in (0x200000, 64):
            client_test.all_but_shutdown(line.port, job_manager.home)
        tlm._PACKET_SIZE = 0x200000
        large_file(folder, job_manager.port, job_manager.home)
        with tlm.JobManager(port=line.port) as client:
            client.shutdown()
        line.write(path, PORT)
        texts = messages(path)
        every_operation(path, texts)
        the_fields(texts, job_manager.home)
        same(messages(path, "-2"), texts)
        for segment, port in ((108, PORT), (1400, 30_000), (33, PORT)):
            line.write(path, port, segment)
            same(messages(path), texts)
            same(messages(path, "-2"), texts)
        line.write(path, PORT, first=60)
        rest = messages(path)
        assert len(rest) > len(texts) / 2 and rest[-1] == texts[-1], "a capture without its beginning"
        line.write(path, PORT, kept=100)
        assert of("Call Hello", messages(path)) and "Malformed" in "".join(messages(path)), "packets without their ends"
        what_is_no_message(folder)


main()
