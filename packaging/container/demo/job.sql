INSERT INTO rate_upload_task (upload_file_path, upload_format_file, rate_table_id, rate_date_format)
VALUES ('/var/portal/deck', 'deck.csv', 1, 'YYYY-MM-DD');
