import pytest


@pytest.fixture(autouse=True)
def _files_go_to_a_folder_of_their_own(tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
