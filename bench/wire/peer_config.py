"""What the notebook server is spared, so that the comparison is one of designs and not of settings."""

from jupyter_server.services.kernels.handlers import ZMQChannelsHandler

c.ServerApp.limit_rate = False  # noqa: F821  (c is what the server hands to its configuration)
c.ServerApp.iopub_msg_rate_limit = float("inf")  # noqa: F821
c.ServerApp.iopub_data_rate_limit = float("inf")  # noqa: F821

_open = ZMQChannelsHandler.open


def _open_without_nagle(self, kernel_id):
    """With Nagle's algorithm, most replies wait 40 ms for a delayed acknowledgement."""
    self.set_nodelay(True)
    return _open(self, kernel_id)


ZMQChannelsHandler.open = _open_without_nagle
