// The least that can evaluate Python behind a WebSocket: one connection, one thread, blocking calls. Each
// text message is an expression, each answer the text of its value. Prints its port; ends with its client.

#define PY_SSIZE_T_CLEAN
#include <Python.h>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/websocket.hpp>

#include <iostream>
#include <memory>
#include <string>

namespace {

namespace beast = boost::beast;
using boost::asio::ip::tcp;

struct Release {
    void operator()(PyObject* object) const { Py_XDECREF(object); }
};
using Owned = std::unique_ptr<PyObject, Release>;

std::string evaluate(const std::string& expression, PyObject* globals) {
    const Owned code(Py_CompileString(expression.c_str(), "<message>", Py_eval_input));
    const Owned value(code ? PyEval_EvalCode(code.get(), globals, globals) : nullptr);
    const Owned text(value ? PyObject_Str(value.get()) : nullptr);
    const char* characters = text ? PyUnicode_AsUTF8(text.get()) : nullptr;
    if (characters == nullptr) {
        PyErr_Clear();
        return "error";
    }
    return characters;
}

}  // namespace

int main() {
    Py_InitializeEx(0);
    const Owned globals(PyDict_New());
    PyDict_SetItemString(globals.get(), "__builtins__", PyEval_GetBuiltins());

    boost::asio::io_context context;
    tcp::acceptor acceptor(context, tcp::endpoint(boost::asio::ip::address_v4::loopback(), 0));
    std::cout << "bare_server: listening on " << acceptor.local_endpoint().port() << std::endl;
    beast::websocket::stream<tcp::socket> socket(acceptor.accept());
    socket.next_layer().set_option(tcp::no_delay(true));
    socket.accept();
    socket.text(true);
    beast::flat_buffer buffer;
    beast::error_code error;
    while (socket.read(buffer, error) != 0 && !error) {
        socket.write(boost::asio::buffer(evaluate(beast::buffers_to_string(buffer.data()), globals.get())));
        buffer.clear();
    }
    return 0;
}
