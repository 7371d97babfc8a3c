#include "web_peer.h"

#include <algorithm>
#include <fstream>
#include <thread>
#include <unistd.h>
#include <vector>

namespace tlm::bench {

namespace {

std::string Request(const std::string& method, const std::string& name, std::size_t length) {
  return method + " /" + name + " HTTP/1.1\r\nHost: localhost\r\nContent-Length: " + std::to_string(length) +
         "\r\nConnection: close\r\n\r\n";
}

// Reads up to the empty line, a byte at a time since what follows is another one's. Throws unless the status is 2xx.
std::string ReceiveHead(const Connection& connection) {
  std::string head;
  for (char byte = 0; !head.ends_with("\r\n\r\n"); head += byte) connection.Receive(&byte, 1);
  Require(head.starts_with("HTTP/1.1 2"), "nginx answers: " + head.substr(0, head.find('\r')));
  return head;
}

std::string Configuration(const Scratch& scratch, const std::filesystem::path& documents, std::uint16_t port) {
  const std::string root = scratch.Root();
  return "daemon off; master_process off; pid " + root + "/pid; error_log " + root + "/errors;\n" +
         "events {}\nhttp {\n  access_log off; sendfile on; tcp_nodelay on; client_max_body_size 0;\n" +
         "  client_body_temp_path " + root + "/body; proxy_temp_path " + root + "/p; fastcgi_temp_path " + root +
         "/f; uwsgi_temp_path " + root + "/u; scgi_temp_path " + root + "/s;\n" +  //
         "  server { listen 127.0.0.1:" + std::to_string(port) + "; root " + documents.string() +
         "; dav_methods PUT; }\n}\n";
}

}  // namespace

WebPeer::WebPeer(const std::filesystem::path& documents) : port_(FreePort()) {
  std::ofstream(scratch_ / "conf") << Configuration(scratch_, documents, port_);
  process_.emplace([this] {
    const std::string program = FindProgram("nginx");
    execl(program.c_str(), program.c_str(), "-e", (scratch_ / "errors").c_str(), "-p", scratch_.Root().c_str(), "-c",
          (scratch_ / "conf").c_str(), nullptr);
    Check(-1, program);
  });
  for (int tries = 1000; tries > 0 && process_->IsRunning(); --tries) {
    try {
      static_cast<void>(Connect());
      idle_ = process_->Resident();
      return;
    } catch (const std::runtime_error&) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
  Require(false, "nginx does not start");
}

void PutDocument(const Connection& connection, const std::string& name, std::string_view piece, std::size_t count) {
  connection.Send(Request("PUT", name, piece.size() * count));
  for (; count > 0; --count) connection.Send(piece);
  ReceiveHead(connection);
}

std::size_t GetDocument(const Connection& connection, const std::string& name) {
  connection.Send(Request("GET", name, 0));
  const std::string head = ReceiveHead(connection);
  const std::size_t length = std::stoul(head.substr(head.find("Content-Length: ") + 16));
  std::vector<char> buffer(1 << 18);
  for (std::size_t left = length; left > 0;) {
    const std::size_t count = connection.ReceiveSome(buffer.data(), std::min(left, buffer.size()));
    Require(count > 0, "nginx has closed the connection");
    left -= count;
  }
  return length;
}

}  // namespace tlm::bench
