"""A callback of ansible-core, which has none of its own for programs: prints what happened as one JSON object."""

import json

from ansible.plugins.callback import CallbackBase

DOCUMENTATION = """
    name: told
    type: stdout
    short_description: one JSON object at the end
    description: The results of each task on each host, and the counts of each host.
"""


class CallbackModule(CallbackBase):
    CALLBACK_VERSION = 2.0
    CALLBACK_TYPE = "stdout"
    CALLBACK_NAME = "told"

    def __init__(self):
        super().__init__()
        self.tasks = {}

    def keep(self, result, **_):
        hosts = self.tasks.setdefault(result.task_name, {})
        hosts[result._host.get_name()] = {"msg": result._result.get("msg")}

    v2_runner_on_ok = v2_runner_on_failed = v2_runner_on_unreachable = v2_runner_on_skipped = keep

    def v2_playbook_on_stats(self, stats):
        counts = {host: stats.summarize(host) for host in stats.processed}
        self._display.display(json.dumps({"tasks": self.tasks, "stats": counts}))
